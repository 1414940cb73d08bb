// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_batch.h"

#include <algorithm>
#include <cstring>

#include "dsp/dtmf_decision.h"
#include "dsp/dtmf_filters.h"
#include "runtime/e1.h"

// A delivered block ends one or two analysed ones. Quiet ones are done with at once. The others wait for each other,
// whichever decoders they are from; a glance at each leaves few of them for the filters, unless somebody dials:
//
//   job -> all 160 bytes quiet? -> no digit -> tail of the decoder
//               | no
//          block of work -> a glance: may it hold a digit? -> no
//                                | yes
//                      filters, side by side -> tests -> hit -> debounce, in the order of the jobs

namespace zelk {
namespace {

char Decide(const SLaneEnergies& energies, size_t lane, const SDtmfSettings& thresholds) {
  ToneEnergies rows;
  ToneEnergies columns;
  for (size_t i = 0; i < kTonesOfGroup; ++i) {
    rows[i] = energies.rows[i][lane];
    columns[i] = energies.columns[i][lane];
  }
  return DigitOf(rows, columns, energies.totals[lane], thresholds);
}

// How many jobs ahead their memory is asked for: a quiet job takes less time than its memory to come.
constexpr size_t kForeseen = 8;

// The code of a byte: without sign and inversion.
constexpr uint8_t CodeOf(int16_t byte) {
  return static_cast<uint8_t>((byte ^ 0x55) & 0x7F);
}

void Foresee(const SDigitJob& job) {
  constexpr size_t kLine = 64;
  for (size_t at = 0; job.uniform < 0 && at < kBlockBytes; at += kLine)
    __builtin_prefetch(job.alaw + at);
  __builtin_prefetch(job.decoder, 1);
  if (job.uniform < 0)
    __builtin_prefetch(reinterpret_cast<const uint8_t*>(job.decoder) + kLine, 1);
}

}  // namespace

class CDtmfBatch {
 public:
  explicit CDtmfBatch(const SDtmfFilters& variant) : filters(variant) {}

  void Take(const SDigitJob& job);
  void Flush();

 private:
  static constexpr size_t kRoom = 64;
  struct SWork {
    CDtmfDecode* decoder;
    char hit;
  };

  static void KeepTail(CDtmfDecode& decoder, const SDigitJob& job);
  const uint8_t* Join(const CDtmfDecode& decoder, const uint8_t* alaw);
  void EndBlock(CDtmfDecode& decoder, const uint8_t* block, uint8_t loudest);
  void RunFilters(size_t candidateCount);

  const SDtmfFilters& filters;
  const SDtmfTables& tables = DtmfTables();
  size_t workCount = 0;
  std::array<SWork, kRoom> work;
  std::array<const uint8_t*, kRoom> blocks;
  std::array<SDtmfGlance, kRoom> glances;
  std::array<uint8_t, kRoom> candidates;
  // Of each waiting block that began in an earlier delivery: the decoder's tail and the bytes after it.
  std::array<std::array<uint8_t, 2 * CDtmfDecode::kTail>, kRoom> joined;
};

// What is held of the current block and 160 bytes more: one block ends always, a second if 44 were held at least.
void CDtmfBatch::Take(const SDigitJob& job) {
  CDtmfDecode& decoder = *job.decoder;
  if (decoder.HasOrders() || decoder.oneByOne) {
    if (decoder.blocksInWork != 0)
      Flush();
    decoder.ProcessBlock(job.alaw, kBlockBytes);
    return;
  }
  const size_t held = decoder.sampleCount;
  const uint8_t* const second = job.alaw + (kDtmfBlock - held);
  const bool endsTwo = 2 * kDtmfBlock - held <= kBlockBytes;
  const uint8_t loudest = job.uniform < 0 ? filters.loudest(job.alaw) : CodeOf(job.uniform);
  const uint8_t loudestOfFirst = std::max(loudest, decoder.loudest);
  // Between digits, blocks without one change nothing.
  if (loudestOfFirst > kQuietCode || !decoder.IsIdle()) {
    EndBlock(decoder, held == 0 ? job.alaw : Join(decoder, job.alaw), loudestOfFirst);
    if (endsTwo)
      EndBlock(decoder, second, loudest);
  }
  KeepTail(decoder, job);
  decoder.loudest = loudest;
  decoder.sampleCount = static_cast<uint8_t>(held + kBlockBytes - (endsTwo ? 2 : 1) * kDtmfBlock);
}

// A steady tail that stays as it is is not written again: of a quiet line's decoder one cache line is touched.
void CDtmfBatch::KeepTail(CDtmfDecode& decoder, const SDigitJob& job) {
  if (job.uniform < 0)
    std::memcpy(decoder.tail.data(), job.alaw + (kBlockBytes - CDtmfDecode::kTail), CDtmfDecode::kTail);
  else if (!decoder.isTailSteady || decoder.tail[0] != job.uniform)
    decoder.tail.fill(static_cast<uint8_t>(job.uniform));
  decoder.isTailSteady = job.uniform >= 0;
}

// The block that began in what the decoder has kept, in one piece.
const uint8_t* CDtmfBatch::Join(const CDtmfDecode& decoder, const uint8_t* alaw) {
  uint8_t* const both = joined[workCount].data();
  std::memcpy(both, decoder.tail.data(), CDtmfDecode::kTail);
  std::memcpy(both + CDtmfDecode::kTail, alaw, CDtmfDecode::kTail);
  return both + CDtmfDecode::kTail - decoder.sampleCount;
}

void CDtmfBatch::EndBlock(CDtmfDecode& decoder, const uint8_t* block, uint8_t loudest) {
  // Behind a block of the same decoder that waits, a quiet one waits too.
  if (loudest <= kQuietCode && decoder.blocksInWork == 0) {
    decoder.Debounce(0);
    return;
  }
  ++decoder.blocksInWork;
  work[workCount] = {&decoder, 0};
  blocks[workCount] = block;
  if (++workCount == kRoom)
    Flush();
}

void CDtmfBatch::Flush() {
  filters.glance(blocks.data(), workCount, tables, glances.data());
  size_t count = 0;
  for (size_t i = 0; i < workCount; ++i) {
    candidates[count] = static_cast<uint8_t>(i);
    count += MayHoldDigit(glances[i], work[i].decoder->thresholds) ? 1U : 0U;
  }
  if (count != 0)
    RunFilters(count);
  for (size_t i = 0; i < workCount; ++i) {
    --work[i].decoder->blocksInWork;
    work[i].decoder->Debounce(work[i].hit);
  }
  workCount = 0;
}

void CDtmfBatch::RunFilters(size_t candidateCount) {
  SLaneEnergies energies;
  std::array<const uint8_t*, kMostLanes> lanes;
  for (size_t from = 0; from < candidateCount; from += filters.lanes) {
    for (size_t lane = 0; lane < filters.lanes; ++lane)
      lanes[lane] = blocks[candidates[std::min(from + lane, candidateCount - 1)]];
    filters.run(lanes.data(), tables, energies);
    for (size_t i = from; i < std::min(from + filters.lanes, candidateCount); ++i) {
      SWork& done = work[candidates[i]];
      done.hit = Decide(energies, i - from, done.decoder->thresholds);
    }
  }
}

void FindDigits(const SDigitJob* jobs, size_t count) {
  static const EInstructionSet best = BestInstructionSet();
  FindDigits(jobs, count, best);
}

void FindDigits(const SDigitJob* jobs, size_t count, EInstructionSet instructionSet) {
  CDtmfBatch batch(DtmfFilters(instructionSet));
  for (size_t i = 0; i < count; ++i) {
    if (i + kForeseen < count)
      Foresee(jobs[i + kForeseen]);
    batch.Take(jobs[i]);
  }
  batch.Flush();
}

}  // namespace zelk
