#pragma once

#include <Core/Export.h>
#include <Core/Process/Progression/ProgressionObservable.h>

#include <atomic>
#include <memory>

namespace Orvan::Core::Process::Progression {

// The progression of a long-running process. It is in progress until it is
// completed, by setCompleted() or by the destruction of its token, and never
// goes back; a completed progression reads 1.0.
class ORVAN_CORE_EXPORT ProcessProgression : public ProgressionObservable {
public:
  // Completes its progression when it is destroyed, unless it has been
  // detached. A process step holds the token (through the shared pointer
  // handed out by getToken) for its duration.
  class ORVAN_CORE_EXPORT ProcessProgressionToken {
  public:
    explicit ProcessProgressionToken(ProcessProgression& progression);

    // The new token is armed, even when `other` was already detached; `other`
    // is left detached.
    ProcessProgressionToken(ProcessProgressionToken&& other);

    ProcessProgressionToken(const ProcessProgressionToken&) = delete;
    ProcessProgressionToken& operator=(const ProcessProgressionToken&) = delete;
    ProcessProgressionToken& operator=(ProcessProgressionToken&&) = delete;

    ~ProcessProgressionToken();

  private:
    friend class ProcessProgression;

    bool detached;
    ProcessProgression& progression;
  };

  ProcessProgression();

  // Detaches the most recent token if it still lives, so that its later
  // destruction leaves this progression alone.
  ~ProcessProgression() override;

  bool isCompleted() const override;

  // Marks the progression completed and notifies; calling it again notifies
  // again.
  void setCompleted();

protected:
  std::weak_ptr<ProcessProgressionToken> token;

private:
  std::atomic<bool> completed{false};
};

} // namespace Orvan::Core::Process::Progression
