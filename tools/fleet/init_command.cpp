// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>

#include "fleet/commands.h"

namespace fleet {

namespace {

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kDay = 86400 * kSecond;
constexpr int64_t kMostInWork = 100000;
constexpr int kSoundBytes = 600 * 1024;  // a part of a sound

void Explain(natsStatus status, jsErrCode code, const std::string& what) {
  constexpr jsErrCode kOtherSettings = JSStreamNameExistErr;
  if (status != NATS_OK && code == kOtherSettings) {
    throw CLinkError(what + " is there already, with other settings");
  }
  Check(status, what);
}

void AddStream(jsCtx* js, jsStreamConfig& config) {
  jsErrCode code{};
  jsStreamInfo* info = nullptr;
  Explain(js_AddStream(&info, js, &config, nullptr, &code), code, std::string("stream ") + config.Name);
  std::printf("stream %s: %llu messages, %lld replicas\n", config.Name,
              static_cast<unsigned long long>(info->State.Msgs), static_cast<long long>(info->Config->Replicas));
  jsStreamInfo_Destroy(info);
}

void AddJobs(jsCtx* js, const SNames& names, const SInitOptions& options) {
  const std::string subject = names.Job(">");
  const char* subjects[] = {subject.c_str()};
  jsStreamConfig config;
  jsStreamConfig_Init(&config);
  config.Name = names.jobs.c_str();
  config.Subjects = subjects;
  config.SubjectsLen = 1;
  config.Retention = js_WorkQueuePolicy;
  config.Replicas = options.replicas;
  config.Duplicates = int64_t{options.duplicateHours} * 3600 * kSecond;
  AddStream(js, config);

  jsConsumerConfig consumer;
  jsConsumerConfig_Init(&consumer);
  consumer.Durable = kConsumer;
  consumer.AckPolicy = js_AckExplicit;
  consumer.AckWait = options.ackWaitSeconds * kSecond;
  consumer.MaxDeliver = -1;
  consumer.MaxAckPending = kMostInWork;
  jsErrCode code{};
  jsConsumerInfo* info = nullptr;
  Explain(js_AddConsumer(&info, js, names.jobs.c_str(), &consumer, nullptr, &code), code, "the consumer of jobs");
  jsConsumerInfo_Destroy(info);
}

void AddResults(jsCtx* js, const SNames& names, const SInitOptions& options) {
  const std::string subject = names.Result(">");
  const char* subjects[] = {subject.c_str()};
  jsStreamConfig config;
  jsStreamConfig_Init(&config);
  config.Name = names.results.c_str();
  config.Subjects = subjects;
  config.SubjectsLen = 1;
  config.Replicas = options.replicas;
  config.MaxAge = options.keepDays * kDay;
  AddStream(js, config);
}

void AddBucket(jsCtx* js, const std::string& name, int replicas, int64_t life, int32_t most) {
  kvConfig config;
  kvConfig_Init(&config);
  config.Bucket = name.c_str();
  config.History = 1;
  config.TTL = life;
  config.Replicas = replicas;
  config.MaxValueSize = most;
  kvStore* store = nullptr;
  Check(js_CreateKeyValue(&store, js, &config), "bucket " + name);
  kvStore_Destroy(store);
  std::printf("bucket %s\n", name.c_str());
}

}  // namespace

int RunInit(const SLinkOptions& link, const SNames& names, const SInitOptions& options) {
  CLink connection(link, [](SMail&& /*mail*/) {});
  jsCtx* js = connection.JetStream();
  jsAccountInfo* account = nullptr;
  jsErrCode code{};
  Check(js_GetAccountInfo(&account, js, nullptr, &code), "the servers have no JetStream for this user");
  jsAccountInfo_Destroy(account);
  AddJobs(js, names, options);
  AddResults(js, names, options);
  // Claims stay as long as results: either of them keeps a job from being dialled again.
  AddBucket(js, names.claims, options.replicas, options.keepDays * kDay, 1024);
  AddBucket(js, names.nodes, options.replicas, options.lifeSeconds * kSecond, -1);
  AddBucket(js, names.sounds, options.replicas, 0, kSoundBytes);
  return 0;
}

}  // namespace fleet
