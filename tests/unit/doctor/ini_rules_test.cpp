// SPDX-License-Identifier: GPL-2.0-only
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "findings.h"

namespace doctor {
namespace {

using test::Said;
using testing::ElementsAre;
using testing::IsEmpty;

Findings IniFindings(const std::string& text, const Serials& serials = {}) {
  SLibraryFacts library;
  library.iniPath = "/opt/app/libZelkApi.ini";
  library.ini = ReadIni(text);
  return IniRules(library, serials);
}

TEST(DoctorIni, ASoundFileHasNothingToRemark) {
  EXPECT_THAT(IniFindings("\xEF\xBB\xBF; settings\r\n[debug]\r\n;Level=abc\n ; Levvel=1\nLEVEL = 2 ; all\r\n# "
                          "note\n[General]\nAudioBuffers=\"32\"\n"
                          "CRC4=1\nEchoTail=\n[Dtmf]\nNormalTwist=7.5\n[100234-2]\nClientType=1\nno setting\n"),
              IsEmpty());
  EXPECT_THAT(IniFindings("", {{100001, 2}}), IsEmpty());
}

TEST(DoctorIni, UnknownSectionsAndKeysAreToldWithWhatIsMeant) {
  EXPECT_THAT(Said(IniFindings("[Generel]\nCrc4=1\n[Sound]\n[General]\nAudioBufers=8\nVolume=3\n")),
              ElementsAre("warning ini-unknown-section: libZelkApi.ini has a section [Generel], which the library does "
                          "not know; General is meant?",
                          "warning ini-unknown-section: libZelkApi.ini has a section [Sound], which the library does "
                          "not know.",
                          "warning ini-unknown-key: libZelkApi.ini has a key AudioBufers in [General], which the "
                          "library does not know; AudioBuffers is meant?",
                          "warning ini-unknown-key: libZelkApi.ini has a key Volume in [General], which the library "
                          "does not know."));
}

TEST(DoctorIni, EvidenceIsTheLine) {
  const Findings findings = IniFindings("[Debug]\n\nLevle=0\n");
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_THAT(findings[0].evidence, ElementsAre("/opt/app/libZelkApi.ini, line 3"));
}

TEST(DoctorIni, ASettingThatNobodyReadsIsTold) {
  EXPECT_THAT(Said(IniFindings("Level=0\n[General]\nLevel=0\n[Debug]\nCrc4=1\n[100001-1]\nAudioBuffers=4\n")),
              ElementsAre("warning ini-no-section: libZelkApi.ini has Level above its first section.",
                          "warning ini-wrong-section: libZelkApi.ini has Level in [General], where it is not read; it "
                          "belongs to [Debug].",
                          "warning ini-wrong-section: libZelkApi.ini has Crc4 in [Debug], where it is not read; it "
                          "belongs to [General].",
                          "warning ini-wrong-section: libZelkApi.ini has AudioBuffers in [100001-1], where it is not "
                          "read; it belongs to [General]."));
  EXPECT_THAT(Said(IniFindings("[Debug]\nLevel=1\nlevel=0\n[DEBUG]\nLevel=2\n")),
              ElementsAre("warning ini-repeated: libZelkApi.ini has level in [Debug] once more.",
                          "warning ini-repeated: libZelkApi.ini has [DEBUG] once more."));
}

TEST(DoctorIni, ValuesAreToldAsTheLibraryReadsThem) {
  EXPECT_THAT(Said(IniFindings("[Debug]\nLevel=abc\nStatus=yes\n[General]\nCrc4=0x10\nNumberType=33x\nHdlcLog=- 1\n"
                               "EchoCanceller=0\n")),
              ElementsAre("warning ini-reads-zero: libZelkApi.ini: Level=abc reads as 0.",
                          "warning ini-reads-zero: libZelkApi.ini: Status=yes reads as 0.",
                          "warning ini-reads-zero: libZelkApi.ini: Crc4=0x10 reads as 0.",
                          "warning ini-number-cut: libZelkApi.ini: NumberType=33x reads as 33.",
                          "warning ini-reads-zero: libZelkApi.ini: HdlcLog=- 1 reads as 0."));
  EXPECT_THAT(Said(IniFindings("[Dtmf]\nRowPeak=,5\nColPeak=6,3\n")),
              ElementsAre("warning ini-not-real: libZelkApi.ini: RowPeak=,5 is no number."));
}

TEST(DoctorIni, ValuesOutOfRangeAreTold) {
  EXPECT_THAT(
      Said(IniFindings("[General]\nAudioBuffers=0\nEchoTail=16\nClientType=3\nSwitchType=8\nNumberType=129\n"
                       "ClearedCallTimeout=-1\n[100001-1]\nClientType=network\n")),
      ElementsAre("warning ini-out-of-range: libZelkApi.ini: AudioBuffers=0 keeps all sound away, from the line and to "
                  "it.",
                  "warning ini-out-of-range: libZelkApi.ini: EchoTail=16 is not among the values 32 to 1024 that are "
                  "of use.",
                  "fault ini-wrong-side: libZelkApi.ini: ClientType=3 is neither side of the D-channel, so the trunk "
                  "stays down.",
                  "warning ini-out-of-range: libZelkApi.ini: SwitchType=8 is not among the values 1 to 10 that are of "
                  "use.",
                  "warning ini-out-of-range: libZelkApi.ini: NumberType=129 is not among the values 0 to 127 that are "
                  "of use.",
                  "warning ini-out-of-range: libZelkApi.ini: ClearedCallTimeout=-1 is not among the values 0 to 86400 "
                  "that are of use.",
                  "warning ini-reads-zero: libZelkApi.ini: ClientType=network reads as 0.",
                  "fault ini-wrong-side: libZelkApi.ini: ClientType=network is neither side of the D-channel, so the "
                  "trunk stays down."));
}

TEST(DoctorIni, ASectionOfNoCardIsTold) {
  EXPECT_THAT(
      Said(IniFindings("[100001-1]\n[100001-3]\n[100009-1]\n", {{100001, 2}})),
      ElementsAre("warning ini-serial-unknown: libZelkApi.ini has a section [100001-3], and the card 100001 has "
                  "trunks 1 to 2.",
                  "warning ini-serial-unknown: libZelkApi.ini has a section [100009-1], and no card that was "
                  "seen has the serial number 100009."));
  EXPECT_THAT(
      Said(IniFindings("[100009-1]\n[100009-0]\n[0100009-1]\n")),
      ElementsAre("warning ini-serial-unknown: libZelkApi.ini has a section [100009-0], and the card 100009 has "
                  "trunks 1 to 8.",
                  "warning ini-unknown-section: libZelkApi.ini has a section [0100009-1], which the library "
                  "does not know."));
}

TEST(DoctorIni, AFileThatCannotBeReadIsTold) {
  EXPECT_THAT(Said(IniFindings("\xFF\xFE[\0D\0")),
              ElementsAre("fault ini-utf16: libZelkApi.ini is a UTF-16 file, of which only "
                          "Windows reads anything."));
  SLibraryFacts library;
  library.iniPath = "/opt/app/libZelkApi.ini";
  library.iniFault = "it cannot be opened";
  EXPECT_THAT(Said(IniRules(library, {})),
              ElementsAre("not seen ini-unreadable: /opt/app/libZelkApi.ini cannot be read: it cannot be opened."));
}

TEST(DoctorIni, AnyBytesAreTaken) {
  std::string bytes;
  for (unsigned i = 0; i < 4096; ++i) {
    bytes += static_cast<char>(i * 31 + i / 7);
  }
  for (std::size_t length = 0; length < bytes.size(); length += 13) {
    IniFindings("[General]\n" + bytes.substr(length));
  }
  EXPECT_EQ(IniNumber("4294967297"), 1);  // as the library wraps it
  EXPECT_EQ(IniNumber(" -7z"), -7);
}

}  // namespace
}  // namespace doctor
