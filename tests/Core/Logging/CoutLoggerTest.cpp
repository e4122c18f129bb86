#include <Core/Logging/CoutLogger.h>
#include <OutputCapture.h>

#include <gtest/gtest.h>

#include <memory>

using Orvan::Core::Logging::CoutLogger;
using Orvan::Testing::OutputCapture;

TEST(CoutLogger, EachConstructionPrintsTheVersionBanner)
{
  OutputCapture output(1);
  {
    CoutLogger first;
    CoutLogger second;
  }
  EXPECT_EQ(output.release(), "Lib Version: 7.6.3\nLib Version: 7.6.3\n");
}

TEST(CoutLogger, EveryLevelWritesItsTenCharacterTag)
{
  CoutLogger logger;
  OutputCapture output(1);
  logger.info("disk almost full");
  logger.warning("disk almost full");
  logger.error("disk almost full");
  logger.debug("disk almost full");
  logger.verbose("disk almost full");
  EXPECT_EQ(output.release(),
            "[INFO   ] disk almost full\n"
            "[WARNING] disk almost full\n"
            "[ERROR  ] disk almost full\n"
            "[DEBUG  ] disk almost full\n"
            "[VERBOSE] disk almost full\n");
}

TEST(CoutLogger, EmptyMessageKeepsTheTagsTrailingBlank)
{
  CoutLogger logger;
  OutputCapture output(1);
  logger.info("");
  EXPECT_EQ(output.release(), "[INFO   ] \n");
}

TEST(CoutLogger, MessageIsWrittenAsItStands)
{
  CoutLogger logger;
  OutputCapture output(1);
  logger.warning(std::string("two\nlines\0and a NUL", 19));
  EXPECT_EQ(output.release(), std::string("[WARNING] two\nlines\0and a NUL\n", 30));
}

TEST(CoutLogger, TriggerLogMemoryWritesNothing)
{
  CoutLogger logger;
  OutputCapture output(1);
  OutputCapture error(2);
  logger.triggerLogMemory();
  EXPECT_EQ(output.release(), "");
  EXPECT_EQ(error.release(), "");
}

TEST(CoutLogger, NothingGoesToStandardError)
{
  OutputCapture error(2);
  OutputCapture output(1);
  {
    CoutLogger logger;
    logger.error("failure");
    logger.warning("careful");
  }
  EXPECT_EQ(output.release(), "Lib Version: 7.6.3\n[ERROR  ] failure\n[WARNING] careful\n");
  EXPECT_EQ(error.release(), "");
}
