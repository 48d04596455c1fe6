#include <gtest/gtest.h>
#include <zelk/Profile.h>

#include <string>

#include "support/TemporaryDirectory.h"

namespace {

using std::string_literals::operator""s;

class Profile : public testing::Test {
 protected:
  // The value, "(kept)" where the buffer was left as it was, "(-1)" for a failure that left it so.
  std::string Get(const std::string& text, const char* key, const char* section = "config") {
    test::WriteFile(directory / "file", text);
    char value[256] = "(kept)";
    const int result = GetProfileString((directory / "file").c_str(), section, key, value);
    if (result == 0) return value;
    EXPECT_EQ(result, -1);
    EXPECT_STREQ(value, "(kept)");
    return "(-1)";
  }

  test::TemporaryDirectory directory;
};

TEST_F(Profile, TrimsTheValueButKeepsWhatHasNothingElse) {
  EXPECT_EQ(Get("[config]\nlogtostdout = true \n", "logtostdout"), "true");
  EXPECT_EQ(Get("[config]\r\n\tkey\t=\v a b \f\r\n", "key"), "a b");
  EXPECT_EQ(Get("[config]\npath=/a=b\n", "path"), "/a=b");
  EXPECT_EQ(Get("[config]\nkey=on the last line", "key"), "on the last line");
  EXPECT_EQ(Get("[config]\nloglevel=\n", "loglevel"), "(kept)");
  EXPECT_EQ(Get("[config]\nloglevel=", "loglevel"), "(kept)");
  EXPECT_EQ(Get("[config]\nblank=  \t\n", "blank"), "  \t");
  EXPECT_EQ(Get("[config]\ncrlf=\r\n", "crlf"), "\r");
}

TEST_F(Profile, EndsAKeyAtBlanksBarsAndCaretsAndComparesItExactly) {
  EXPECT_EQ(Get("[config]\na|b=1\n", "a"), "1");
  EXPECT_EQ(Get("[config]\nkey^x=1\n", "key"), "1");
  EXPECT_EQ(Get("[config]\nkey more = 1\n", "key"), "1");
  EXPECT_EQ(Get("[config]\n=empty\n", ""), "empty");
  EXPECT_EQ(Get("[config]\nKey=1\nkeys=2\nke=3\nkey\nkey=4\nkey=5\n", "key"), "4");
  EXPECT_EQ(Get("[config]\n \n# loglevel=5\n;loglevel=5\n", "loglevel"), "(-1)");
}

TEST_F(Profile, SearchesTheFirstSectionOfTheNameAlone) {
  EXPECT_EQ(Get("key=0\n[configs]\nkey=1\n[config\nkey=2\n  [config]  # main\nkey=3\n", "key"),
            "3");
  EXPECT_EQ(Get("key=0\n[config]\nother=1\n", "key"), "(-1)");
  EXPECT_EQ(Get("[config]\nother=1\n [next]\nkey=2\n[config]\nkey=3\n", "key"), "(-1)");
  EXPECT_EQ(Get("[config]", "key"), "(-1)");
  EXPECT_EQ(Get("[other]\nkey=1", "key"), "(-1)");
  EXPECT_EQ(Get("[config]\nother=1", "key"), "(-1)");
  EXPECT_EQ(Get("", "key"), "(-1)");
}

TEST_F(Profile, ReadsLongLinesInPiecesOf255Characters) {
  const std::string filler(255, 'x');
  EXPECT_EQ(Get("[config]\n" + filler + "key=1\n", "key"), "1");
  EXPECT_EQ(Get("[config]\n" + filler + "[piece]\nkey=1\n", "key"), "(-1)");
  EXPECT_EQ(Get(filler + "[config]\nkey=1\n", "key"), "1");
  EXPECT_EQ(Get("[config]\nk=" + filler + "\n", "k"), std::string(253, 'x'));
}

TEST_F(Profile, SurvivesBytesThatAreNotText) {
  EXPECT_EQ(Get("\0\n[config]\nke\0y=1\n\0key=2\nkey=a\0b\n"s, "key"), "a");
  EXPECT_EQ(Get("[config]\n\xff\xfe=1\n\x80key=2\n", "\xff\xfe"), "1");
}

TEST_F(Profile, RefusesWhatItCannotReadOrHold) {
  const std::string name29(29, 'n'), name30(30, 'n'), key31(31, 'k'), key32(32, 'k');
  const std::string text = "[" + name29 + "]\n" + key32 + "=1\n" + key31 + "=2\n";
  EXPECT_EQ(Get(text, key31.c_str(), name29.c_str()), "2");
  EXPECT_EQ(Get(text, key32.c_str(), name29.c_str()), "(-1)");
  EXPECT_EQ(Get("[" + name30 + "]\nkey=1\n", "key", name30.c_str()), "(-1)");

  char value[256] = "(kept)";
  EXPECT_EQ(GetProfileString(directory.path.c_str(), "config", "key", value), -1);
  EXPECT_EQ(GetProfileString((directory / "none").c_str(), "config", "key", value), -1);
  EXPECT_EQ(GetProfileString(nullptr, "config", "key", value), -1);
  EXPECT_EQ(GetProfileString("/dev/null", nullptr, "key", value), -1);
  EXPECT_EQ(GetProfileString("/dev/null", "config", nullptr, value), -1);
  EXPECT_EQ(GetProfileString("/dev/null", "config", "key", nullptr), -1);
  EXPECT_STREQ(value, "(kept)");
}

}  // namespace
