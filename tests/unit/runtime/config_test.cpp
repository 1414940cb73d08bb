// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/config.h"

#include <gtest/gtest.h>

#include <new>

#include "support/allocation_probe.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

class ConfigFile : public testing::Test {
 protected:
  void Read(std::string_view text) { config.Read(dir.Write("z.ini", text)); }
  CTempDir dir;
  CConfig config;
};

void ExpectDefaults(const CConfig& config) {
  EXPECT_EQ(config.level, 2);
  EXPECT_FALSE(config.flushImmediate);
  EXPECT_FALSE(config.statusPage);
  EXPECT_EQ(config.audioBuffers, 32);
  EXPECT_FALSE(config.hangupOnAlerting);
  EXPECT_EQ(config.numberType, 33);
  EXPECT_EQ(config.clientType, 2);
  EXPECT_EQ(config.switchType, 5);
  EXPECT_FALSE(config.echoCanceller);
  EXPECT_EQ(config.echoTailMs, 32);
  EXPECT_FALSE(config.hdlcLog);
  EXPECT_EQ(config.crc4, 0);
  EXPECT_EQ(config.clearedCallTimeoutS, 5);
  const SDtmfSettings dtmf = config.Dtmf();
  EXPECT_FLOAT_EQ(dtmf.normalTwist, 7.0F);
  EXPECT_FLOAT_EQ(dtmf.reverseTwist, 7.0F);
  EXPECT_FLOAT_EQ(dtmf.rowPeak, 6.3F);
  EXPECT_FLOAT_EQ(dtmf.columnPeak, 6.3F);
  EXPECT_FLOAT_EQ(dtmf.totalEnergy, 40.0F);
}

TEST_F(ConfigFile, HoldsTheDefaultsBeforeAnythingIsRead) {
  ExpectDefaults(config);
}

TEST_F(ConfigFile, AMissingFileGivesTheDefaults) {
  config.Read(dir.Path("none.ini"));
  ExpectDefaults(config);
  config.Read("");
  ExpectDefaults(config);
}

TEST_F(ConfigFile, AFileThatIsGoneAtTheNextReadGivesTheDefaultsAgain) {
  Read("[Debug]\nLevel=0\nFlushImmediate=1\n[General]\nCrc4=1\nEchoTail=64\n");
  config.Read(dir.Path("none.ini"));
  ExpectDefaults(config);
}

TEST_F(ConfigFile, EveryGeneralKeyIsRead) {
  Read(
      "[Debug]\nLevel=1\nFlushImmediate=1\nStatus=1\n"
      "[General]\nAudioBuffers=40\nHangupOnAlerting=1\nNumberType=65\nClientType=1\nSwitchType=1\n"
      "EchoCanceller=1\nEchoTail=64\nHdlcLog=1\nCrc4=1\nClearedCallTimeout=60\n"
      "[Dtmf]\nNormalTwist=1.5\nReverseTwist=2.5\nRowPeak=3.5\nColPeak=4.5\nTotalEnergy=5.5\n");
  EXPECT_EQ(config.level, 1);
  EXPECT_TRUE(config.flushImmediate);
  EXPECT_TRUE(config.statusPage);
  EXPECT_EQ(config.audioBuffers, 40);
  EXPECT_TRUE(config.hangupOnAlerting);
  EXPECT_EQ(config.numberType, 65);
  EXPECT_EQ(config.clientType, 1);
  EXPECT_EQ(config.switchType, 1);
  EXPECT_TRUE(config.echoCanceller);
  EXPECT_EQ(config.echoTailMs, 64);
  EXPECT_TRUE(config.hdlcLog);
  EXPECT_EQ(config.crc4, 1);
  EXPECT_EQ(config.clearedCallTimeoutS, 60);
  const SDtmfSettings dtmf = config.Dtmf();
  EXPECT_FLOAT_EQ(dtmf.normalTwist, 1.5F);
  EXPECT_FLOAT_EQ(dtmf.reverseTwist, 2.5F);
  EXPECT_FLOAT_EQ(dtmf.rowPeak, 3.5F);
  EXPECT_FLOAT_EQ(dtmf.columnPeak, 4.5F);
  EXPECT_FLOAT_EQ(dtmf.totalEnergy, 5.5F);
}

TEST_F(ConfigFile, KeysCountInTheirOwnSectionOnly) {
  Read("[General]\nLevel=0\nFlushImmediate=1\nRowPeak=1\n[Debug]\nCrc4=1\nNormalTwist=1\n");
  ExpectDefaults(config);
}

TEST_F(ConfigFile, Crc4KeepsItsNumberAndAFlagIsOnWhenNotZero) {
  Read("[General]\nCrc4=2\nHdlcLog=2\nEchoCanceller=-1\nHangupOnAlerting=yes\n");
  EXPECT_EQ(config.crc4, 2);
  EXPECT_TRUE(config.hdlcLog);
  EXPECT_TRUE(config.echoCanceller);
  EXPECT_FALSE(config.hangupOnAlerting);
}

TEST_F(ConfigFile, ALevelThatIsNoNumberIsTheMostVerboseOne) {
  Read("[Debug]\nLevel=abc\n");
  EXPECT_EQ(config.level, 0);
}

TEST_F(ConfigFile, NothingIsClampedWhenRead) {
  Read("[Debug]\nLevel=-5\n[General]\nAudioBuffers=-1\nEchoTail=1000000\nClientType=1000\n");
  EXPECT_EQ(config.level, -5);
  EXPECT_EQ(config.audioBuffers, -1);
  EXPECT_EQ(config.echoTailMs, 1'000'000);
  EXPECT_EQ(config.clientType, 1000);
}

TEST_F(ConfigFile, AnUnreadableThresholdKeepsItsValueButNormalTwistFallsBack) {
  Read("[Dtmf]\nNormalTwist=5.5\nReverseTwist=5.5\nRowPeak=5.5\nColPeak=5.5\nTotalEnergy=5.5\n");
  Read("[Dtmf]\nNormalTwist=abc\nReverseTwist=abc\nRowPeak=abc\nColPeak=\nTotalEnergy=-\n");
  const SDtmfSettings dtmf = config.Dtmf();
  EXPECT_FLOAT_EQ(dtmf.normalTwist, 7.0F);
  EXPECT_FLOAT_EQ(dtmf.reverseTwist, 5.5F);
  EXPECT_FLOAT_EQ(dtmf.rowPeak, 5.5F);
  EXPECT_FLOAT_EQ(dtmf.columnPeak, 5.5F);
  EXPECT_FLOAT_EQ(dtmf.totalEnergy, 5.5F);
}

TEST_F(ConfigFile, AMissingThresholdGivesItsDefaultAgain) {
  Read("[Dtmf]\nRowPeak=5.5\n");
  Read("[Dtmf]\n");
  EXPECT_FLOAT_EQ(config.Dtmf().rowPeak, 6.3F);
}

TEST_F(ConfigFile, AThresholdIsReadFromTheFirst99CharactersOfItsText) {
  Read("[Dtmf]\nRowPeak=" + std::string(98, '0') + "12\n");
  EXPECT_FLOAT_EQ(config.Dtmf().rowPeak, 1.0F);
  Read("[Dtmf]\nRowPeak=" + std::string(97, '0') + "12\n");
  EXPECT_FLOAT_EQ(config.Dtmf().rowPeak, 12.0F);
}

TEST_F(ConfigFile, AudioBlocksStayWithinWhatACardHolds) {
  for (const auto& [text, blocks] : {std::pair<const char*, uint32_t>{"-1", 0},
                                     {"-2147483648", 0},
                                     {"0", 0},
                                     {"32", 32},
                                     {"4096", 4096},
                                     {"4097", 4096},
                                     {"2147483647", 4096}}) {
    Read(std::string("[General]\nAudioBuffers=") + text + "\n");
    EXPECT_EQ(config.AudioBlocks(), blocks) << text;
  }
}

TEST_F(ConfigFile, AnEchoTailStaysWithinWhatACancellerCanHave) {
  for (const auto& [wanted, used] : {std::pair<int32_t, int32_t>{-2147483647 - 1, 32},
                                     {-1, 32},
                                     {0, 32},
                                     {31, 32},
                                     {32, 32},
                                     {33, 33},
                                     {1024, 1024},
                                     {1025, 1024},
                                     {2147483647, 1024}}) {
    EXPECT_EQ(config.EchoTail(wanted), used) << wanted;
  }
}

TEST_F(ConfigFile, ATrunkWithoutASectionTakesTheGeneralValues) {
  Read(
      "[General]\nCrc4=3\nHdlcLog=1\nHangupOnAlerting=1\nNumberType=65\nClientType=1\nSwitchType=1\nEchoTail=64\n"
      "EchoCanceller=1\n");
  EXPECT_EQ(config.ReadTrunkCrc4(100234, 2), 3);
  const STrunkSettings trunk = config.ReadTrunk(100234, 2);
  EXPECT_TRUE(trunk.hdlcLog);
  EXPECT_TRUE(trunk.hangupOnAlerting);
  EXPECT_EQ(trunk.numberType, 65);
  EXPECT_EQ(trunk.clientType, 1);
  EXPECT_EQ(trunk.switchType, 1);
  EXPECT_EQ(trunk.echoTailMs, 64);
  EXPECT_TRUE(trunk.echoCanceller);
}

TEST_F(ConfigFile, ATrunksSectionIsNamedBySerialNumberAndTrunk) {
  Read(
      "[General]\nNumberType=65\n"
      "[100234-1]\nCrc4=9\nClientType=9\n"
      "[100234-2]\nCrc4=258\nHdlcLog=2\nHangupOnAlerting=1\nNumberType=1\nClientType=1001\nSwitchType=4\nEchoTail=16\n"
      "EchoCanceller=1\n"
      "[4294967295-8]\nClientType=1000\n");
  EXPECT_EQ(config.ReadTrunkCrc4(100234, 2), 258);
  const STrunkSettings trunk = config.ReadTrunk(100234, 2);
  EXPECT_TRUE(trunk.hdlcLog);
  EXPECT_TRUE(trunk.hangupOnAlerting);
  EXPECT_EQ(trunk.numberType, 1);
  EXPECT_EQ(trunk.clientType, 1001);
  EXPECT_EQ(trunk.switchType, 4);
  EXPECT_EQ(trunk.echoTailMs, 16);
  EXPECT_TRUE(trunk.echoCanceller);
  EXPECT_EQ(config.ReadTrunk(100234, 1).numberType, 65);
  EXPECT_EQ(config.ReadTrunk(4294967295U, 8).clientType, 1000);
}

TEST_F(ConfigFile, ATrunkMaySwitchOffWhatIsOnInGeneral) {
  Read("[General]\nHdlcLog=1\nEchoCanceller=1\n[7-1]\nHdlcLog=0\nEchoCanceller=0\n");
  EXPECT_FALSE(config.ReadTrunk(7, 1).hdlcLog);
  EXPECT_FALSE(config.ReadTrunk(7, 1).echoCanceller);
}

TEST_F(ConfigFile, TrunksAreReadAtEachOpenWithTheGeneralValuesReadLast) {
  Read("[General]\nEchoTail=64\n[7-1]\nClientType=1\n");
  dir.Write("z.ini", "[General]\nEchoTail=128\n[7-1]\nClientType=3\n");
  EXPECT_EQ(config.ReadTrunk(7, 1).clientType, 3);
  EXPECT_EQ(config.ReadTrunk(7, 1).echoTailMs, 64);
}

TEST_F(ConfigFile, APathTooLongForAnySystemReadsAsAMissingFile) {
  Read("[Debug]\nLevel=0\n");
  config.Read("/" + std::string(10'000, 'x'));
  ExpectDefaults(config);
  EXPECT_EQ(config.ReadTrunk(7, 1).numberType, 33);
}

TEST(Config, IsOneForTheProcess) {
  EXPECT_EQ(&Config(), &Config());
}

TEST_F(ConfigFile, AReadThatFindsNoMemoryThrowsAndTheNextOneReadsAll) {
  const std::string path = dir.Write("z.ini", "[Debug]\nLevel=1\n[General]\nCrc4=4\n[Dtmf]\nTotalEnergy=20.5\n");
  uint32_t failures = 0;
  for (bool done = false; !done;) {
    support::FailAllocation(failures + 1);
    try {
      config.Read(path);
      done = true;
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    support::FailAllocation(0);
  }
  EXPECT_GE(failures, 5U) << "the five keys of [Dtmf] at least are read as texts";
  EXPECT_EQ(config.level, 1);
  EXPECT_EQ(config.crc4, 4);
  EXPECT_FLOAT_EQ(config.Dtmf().totalEnergy, 20.5F);
}

}  // namespace
}  // namespace zelk
