#include <Utils/Chronometer.h>

#include <iomanip>
#include <locale>
#include <sstream>

namespace Orvan::Utils {

Chronometer::Chronometer()
    : Chronometer([] { return std::chrono::steady_clock::now(); })
{
}

Chronometer::Chronometer(Now now)
    : now(now)
    , start(now())
{
}

Chronometer::~Chronometer() = default;

std::chrono::steady_clock::duration Chronometer::elapsed() const
{
  return now() - start;
}

std::string Chronometer::elapsedTimeAsStr() const
{
  using Milliseconds = std::chrono::duration<double, std::milli>;
  using Seconds = std::chrono::duration<double>;
  const auto time = elapsed();
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::fixed;
  if (time < std::chrono::seconds(1)) {
    text << std::setprecision(3) << Milliseconds(time).count() << " ms";
  } else {
    text << std::setprecision(1) << Seconds(time).count() << " s";
  }
  return text.str();
}

} // namespace Orvan::Utils
