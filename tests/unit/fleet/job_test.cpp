// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/job.h"

#include <gtest/gtest.h>

#include "fleet/job_list.h"

namespace fleet {
namespace {

std::string FaultOf(const std::string& text) {
  try {
    ParseJob(text);
  } catch (const CJobError& error) {
    return error.what();
  }
  return "";
}

TEST(Job, SurvivesTheWayThroughJson) {
  const std::string text =
      R"({"id":"a-1","to":"030*#+","from":"0309","trunks":["100001/2"],"giveUpAfter":20,"play":"p.wav","record":"r.wav",)"
      R"("digits":3,"attempts":2,"notBefore":"2026-01-31T08:09:10.000Z","notAfter":"2026-01-31T09:09:10.500Z"})";
  EXPECT_EQ(JsonOf(ParseJob(text)).dump(), text);
}

TEST(Job, LeavesOutWhatHasADefault) {
  const SJob job = ParseJob(R"({"id":"a","to":"1"})");
  EXPECT_EQ(job.attempts, 1);
  EXPECT_EQ(job.giveUpAfter, std::chrono::seconds(60));
  EXPECT_FALSE(job.from);
}

TEST(Job, EachFaultIsOneSentence) {
  EXPECT_EQ(FaultOf("{"), "no JSON");
  EXPECT_EQ(FaultOf("[]"), "a job is a JSON object");
  EXPECT_EQ(FaultOf(R"({"to":"1"})"), "\"id\" is missing");
  EXPECT_EQ(FaultOf(R"({"id":"a"})"), "\"to\" is missing");
  EXPECT_EQ(FaultOf(R"({"id":"a.b","to":"1"})"), "\"id\" has 1 to 64 letters, digits, - and _");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"12a"})"), "\"to\" is no number of 1 to 31 characters 0-9 * # +");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"01234567890123456789012345678901"})"),
            "\"to\" is no number of 1 to 31 characters 0-9 * # +");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"1","attempts":0})"), "\"attempts\" is no whole number from 1 to 20");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"1","play":"../x"})"),
            "\"play\" is no name of a file: no / in it, no dot in front, 1 to 200 bytes");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"1","trunks":["1/0"]})"), "\"1/0\" in \"trunks\" is no trunk as 100001/1");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"1","colour":1})"), "a job has no \"colour\"");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"1","notBefore":"2026-02-30T00:00:00Z"})"),
            "\"notBefore\" is no time as 2026-01-31T08:09:10Z");
  EXPECT_EQ(FaultOf(R"({"id":"a","to":"1","notBefore":"2026-01-02T00:00:00Z","notAfter":"2026-01-01T00:00:00Z"})"),
            "\"notAfter\" is before \"notBefore\"");
}

TEST(Job, TimesAreRead) {
  EXPECT_EQ(phone::IsoTime(*ParseTime("2026-01-31T08:09:10Z")), "2026-01-31T08:09:10.000Z");
  EXPECT_EQ(phone::IsoTime(*ParseTime("2026-01-31T08:09:10.123Z")), "2026-01-31T08:09:10.123Z");
  for (const char* text : {"", "2026-01-31", "2026-01-31T08:09:10", "2026-13-31T08:09:10Z", "2026-01-31T24:09:10Z",
                           "2026-01-31T08:09:10.1Z", "2026-01-31T08:09:10Zx"}) {
    EXPECT_FALSE(ParseTime(text)) << text;
  }
}

TEST(JobList, ReadsATableWithQuotes) {
  const SJobList list = ReadJobs("id,to,trunks,digits,play\r\na,030,1/1 2/2,3,\"x,\"\"y\"\".wav\"\r\nb,040,,,\r\n");
  ASSERT_TRUE(list.faults.empty()) << list.faults.front();
  ASSERT_EQ(list.jobs.size(), 2U);
  EXPECT_EQ(list.jobs[0].play, "x,\"y\".wav");
  EXPECT_EQ(list.jobs[0].trunks, (std::vector<STrunkName>{{1, 1}, {2, 2}}));
  EXPECT_EQ(list.jobs[0].digits, 3);
  EXPECT_EQ(list.jobs[1].id, "b");
}

TEST(JobList, NamesTheLineOfEachFault) {
  const SJobList list = ReadJobs("id,to\na,03x\n\n\"b\nb\",040\nc,050\nc,060\nh\ne,070\n");
  EXPECT_EQ(list.faults, (std::vector<std::string>{"line 2: \"to\" is no number of 1 to 31 characters 0-9 * # +",
                                                   "line 4: \"id\" has 1 to 64 letters, digits, - and _",
                                                   "line 7: \"id\" c stands in line 6 already",
                                                   "line 8: 1 cells, the first line has 2"}));
  EXPECT_EQ(list.jobs.size(), 2U);
}

TEST(JobList, ReadsLinesOfJson) {
  const SJobList list = ReadJobs("{\"id\":\"a\",\"to\":\"1\"}\n\n{\"id\":\"a\",\"to\":\"2\"}\n");
  EXPECT_EQ(list.jobs.size(), 1U);
  EXPECT_EQ(list.faults, std::vector<std::string>{"line 3: \"id\" a stands in line 1 already"});
}

}  // namespace
}  // namespace fleet
