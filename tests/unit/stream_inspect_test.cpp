// The real-time commands.
#include "monitor/stream_inspect.h"
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

struct CommandCase {
  std::string strIn;
  std::string strOut;
};
class RealCommands : public ::testing::TestWithParam<CommandCase> {};

TEST_P(RealCommands, AreRewrittenAtEverySplit) {
  for (std::size_t nSplit = 0; nSplit <= GetParam().strIn.size(); ++nSplit) {
    IniJob job = {};
    IniPort port = {};
    port.pIniJob = &job;
    std::string strData = GetParam().strIn;
    auto* p = reinterpret_cast<BYTE*>(strData.data());
    CheckRealCmd(&port, p, static_cast<DWORD>(nSplit));
    CheckRealCmd(&port, p + nSplit, static_cast<DWORD>(strData.size() - nSplit));
    EXPECT_EQ(strData, GetParam().strOut) << nSplit;
  }
}
INSTANTIATE_TEST_SUITE_P(
    All, RealCommands,
    ::testing::Values(CommandCase{"\x13(reset\x13reset)", "\x13(reset\x13resev)"},
                      CommandCase{"\x13(clr)", "\x13(cls)"},
                      CommandCase{std::string("\x10\x14\x01\x00\x05", 5), std::string("\x10\x14\x01\x00\x15", 5)},
                      CommandCase{std::string("\x10\x14\x01\x00\x01", 5), std::string("\x10\x14\x01\x00\x11", 5)},
                      CommandCase{std::string("\x10\x14\x01\xFF\x08", 5), std::string("\x10\x14\x01\xFF\x18", 5)},
                      CommandCase{std::string("\x10\x14\x01\x00\x09", 5), std::string("\x10\x14\x01\x00\x09", 5)},
                      CommandCase{std::string("\x10\x14\x01\x00\x00", 5), std::string("\x10\x14\x01\x00\x00", 5)},
                      CommandCase{"\x13(re\x13(clr", "\x13(re\x13(cls"},
                      CommandCase{"\x13(reset\x13(clr", "\x13(reset\x13(cls"},
                      CommandCase{"\x13(reset\x13rexet", "\x13(reset\x13rexet"}));

// Long buffers are looked through by rows and words; the bytes of the class of a command's first one stand around it.
TEST(RealCommandsInLongData, AreFoundAtEveryPlace) {
  for (const char cBeside : {' ', '\x11', '\x12', '\x0F', '\x14'}) {
    for (std::size_t nPlace = 0; nPlace < 300; ++nPlace) {
      IniJob job = {};
      IniPort port = {};
      port.pIniJob = &job;
      std::string strData(305, cBeside);
      strData.replace(nPlace, 5, "\x13(clr");
      std::string strExpected = strData;
      strExpected[nPlace + 4] = 's';
      CheckRealCmd(&port, reinterpret_cast<BYTE*>(strData.data()), static_cast<DWORD>(strData.size()));
      ASSERT_EQ(strData, strExpected) << nPlace;
    }
  }
}

}  // namespace
