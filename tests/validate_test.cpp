// The program `zelk-validate`: it finds each fault of a block that has one, and says where.
#include <gtest/gtest.h>

#include "support/Program.h"

using test::Program;

namespace {

class Validate : public testing::Test {
 protected:
  int Run(std::vector<std::string> words) {
    words.insert(words.begin(), VALIDATE_PROGRAM);
    Program program(folder.path, words);
    const int status = program.Wait();
    out = program.Out();
    err = program.Err();
    return status;
  }

  // The block's one fault is found by `check`, and the report has `text`.
  // A busy machine is no fault: only a block that hangs runs into the time.
  void Finds(const char* fault, const char* check, const char* text,
             const char* time = "--time=60000") {
    SCOPED_TRACE(fault);
    EXPECT_EQ(1, Run({time, "--only", check, FAULTY_BLOCK, fault}));
    EXPECT_NE(std::string::npos, out.find("\nnot ok 2 - ")) << out;
    EXPECT_NE(std::string::npos, out.find(text)) << out;
  }

  test::TemporaryDirectory folder;
  std::string out, err;
};

TEST_F(Validate, ASoundBlockPassesEveryCheck) {
  EXPECT_EQ(0, Run({FAULTY_BLOCK, "none"}));
  EXPECT_EQ(0u, out.find("TAP version 13\n1..15\nok 1 - is created\n"
                         "# 1 inputs and 1 outputs take 48000 Hz FLOAT_LE x 2, 480 samples"));
  EXPECT_NE(std::string::npos, out.find("\nok 15 - leaves no thread and no open file behind\n"));
  EXPECT_EQ(std::string::npos, out.find("not ok"));
}

TEST_F(Validate, SurvivesACrashAndSaysInWhichCall) {
  Finds("crash-on-empty", "parameters", "died of \"Aborted\" in SetParameter(0, 0 words");
  Finds("crash-in-destructor", "destroy", "died of \"Aborted\" in the block's destructor\n");
  Finds("exit", "reset", " in Reset()\n");
}

TEST_F(Validate, EndsABlockThatNeverReturns) {
  Finds("hang", "start", "# fault: Stop() did not return within 3000 ms\n", "--time=3000");
  Finds("pending", "frames", "answers FRAME_PENDING for ever");
}

TEST_F(Validate, FindsWhatTheContractForbids) {
  Finds("links-once", "link", "# fault: input 0 took a link, and refused it once more\n");
  Finds("starts-once", "start", "# fault: Start() refused after a stop\n");
  Finds("code", "bare-start", "# fault: Start() returned -5; ");
  Finds("throw", "parameters", "SetParameter threw: no such parameter\n");
  Finds("fails-short", "odd-frames", "failed with -7, given frames of 1 samples\n");
  Finds("overlong", "frames", "claims 481 samples; the link's buffer holds 480.");
  Finds("overwrites", "wait", "its frame is another, and the one before had not been taken\n");
  Finds("edits", "frames", "format, channels or rate is another; these fields are the link's\n");
#if defined(__linux__)
  Finds("leak", "leak", "open files instead of");
#endif
}

TEST_F(Validate, ABlockThatIsNotCreatedEndsTheReport) {
  EXPECT_EQ(1, Run({FAULTY_BLOCK}));
  EXPECT_NE(std::string::npos, out.find("not ok 1 - is created\n# fault: CreateBlock() returned "
                                        "null; does it take these words?\n"));
  EXPECT_NE(std::string::npos, out.find("\nBail out!"));
  EXPECT_EQ(1, Run({folder / "absent.so"}));
  EXPECT_NE(std::string::npos, out.find("Can't open " + folder / "absent.so" + "\n")) << out;
}

TEST_F(Validate, RefusesWrongUsage) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{},
                                             {"--link=48000:FLOAT:2:480", "x.so"},
                                             {"--only=luck", "x.so"},
                                             {"-t", "0", "x.so"}}) {
    EXPECT_EQ(2, Run(words));
    EXPECT_EQ(0u, err.find("zelk-validate: "));
  }
}

}  // namespace
