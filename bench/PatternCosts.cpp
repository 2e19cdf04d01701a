// Holds the judgement of patterns against what the C library really needs: nothing that passes may take more than a
// second or 512 MiB, and of what is refused little should be harmless.
//   perenna-pattern-costs [COUNT [SEED [passed]]]
// 10,000 patterns take hours, since what is refused is tried too, for up to some seconds a text; with "passed", which
// tries only what is not refused, much less.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <regex.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "PatternTexts.h"
#include "platform/pattern/Cost.h"

namespace {

constexpr double Ruinous = 1;
constexpr double RuinousMebibytes = 512;
constexpr double Harmless = 0.2;
constexpr double HarmlessMebibytes = 256;
constexpr rlim_t LimitSeconds = 3;
constexpr rlim_t LimitBytes = rlim_t{3} << 30U;

double Seconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Cost {
  double compile = 0;
  double match = 0;
  double mebibytes = 0;
  bool valid = true;
  bool killed = false;
};

struct Measured {
  double compile;
  double match;
  bool valid;
};

/// In a process of its own, which may die of it.
Cost Measure(const std::string& pattern, unsigned seed) {
  int ends[2];
  if (pipe(ends) != 0) {
    std::abort();
  }
  const pid_t child = fork();
  if (child == 0) {
    const rlimit memory{LimitBytes, LimitBytes};
    setrlimit(RLIMIT_AS, &memory);
    std::mt19937 random(seed);
    Measured measured{0, 0, true};
    for (const std::string& text : AdverseTexts(pattern, Perenna::Pattern::SubjectBytes, random)) {
      regex_t regex;
      const double begin = Seconds();
      const rlimit time{static_cast<rlim_t>(begin) + LimitSeconds, RLIM_INFINITY};
      setrlimit(RLIMIT_CPU, &time); // for this text
      measured.valid = regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) == 0;
      const double compiled = Seconds();
      measured.compile = std::max(measured.compile, compiled - begin);
      if (!measured.valid) {
        break;
      }
      static_cast<void>(regexec(&regex, text.c_str(), 0, nullptr, 0));
      measured.match = std::max(measured.match, Seconds() - compiled);
      regfree(&regex);
      if (measured.compile + measured.match > Ruinous) {
        break;
      }
    }
    const bool written = write(ends[1], &measured, sizeof(measured)) == sizeof(measured);
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  Measured measured{0, 0, true};
  Cost cost;
  cost.killed = read(ends[0], &measured, sizeof(measured)) != sizeof(measured);
  close(ends[0]);
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  cost.compile = measured.compile;
  cost.match = measured.match;
  cost.valid = measured.valid;
  cost.mebibytes = static_cast<double>(usage.ru_maxrss) / 1024;
  return cost;
}

std::string Shown(const std::string& pattern) {
  return pattern.size() <= 150 ? pattern : pattern.substr(0, 150) + "... (" + std::to_string(pattern.size()) + ")";
}

} // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 10000;
  const unsigned first = argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 1;
  std::printf("%d patterns from seed %u\n", count, first);
  const bool passed_only = argc > 3 && std::string(argv[3]) == "passed";
  int valid = 0;
  int refused = 0;
  int harmless = 0;
  int harmless_refused = 0;
  int ruinous_passed = 0;
  double judging = 0;
  for (int round = 0; round < count; ++round) {
    const unsigned seed = first + static_cast<unsigned>(round);
    std::mt19937 random(seed);
    const std::string pattern = RandomPattern(random);
    const double begin = Seconds();
    const Perenna::Pattern::Judgement judgement = Perenna::Pattern::Judge(pattern);
    judging = std::max(judging, Seconds() - begin);
    if (passed_only && judgement.refusal != nullptr) {
      ++refused;
      continue;
    }
    const Cost cost = Measure(pattern, seed);
    if (!cost.valid && !cost.killed) {
      continue;
    }
    ++valid;
    refused += judgement.refusal != nullptr ? 1 : 0;
    const bool is_harmless =
        !cost.killed && cost.compile < Harmless && cost.match < Harmless && cost.mebibytes < HarmlessMebibytes;
    const bool is_ruinous = cost.killed || cost.compile + cost.match > Ruinous || cost.mebibytes > RuinousMebibytes;
    harmless += is_harmless ? 1 : 0;
    if ((is_harmless && judgement.refusal != nullptr) || (is_ruinous && judgement.refusal == nullptr)) {
      (is_ruinous ? ruinous_passed : harmless_refused) += 1;
      std::printf("%s seed %u: compile %.3f s, match %.3f s, %.0f MiB%s: %s%s%s\n",
                  is_ruinous ? "RUINOUS, passed" : "harmless, refused", seed, cost.compile, cost.match, cost.mebibytes,
                  cost.killed ? ", killed" : "", Shown(pattern).c_str(), is_ruinous ? "" : "  # ",
                  is_ruinous ? "" : judgement.refusal);
      static_cast<void>(std::fflush(stdout));
    }
  }
  std::printf(
      "%d compile; %d refused; %d harmless, of these %d refused (%.2f %%); %d ruinous ones passed; judging took at "
      "most %.3f s\n",
      valid, refused, harmless, harmless_refused, 100.0 * harmless_refused / std::max(harmless, 1), ruinous_passed,
      judging);
  return ruinous_passed == 0 ? 0 : 1;
}
