// perenna-bench: the module beside the floor, by turns in one process, so that what disturbs one disturbs the other.
//
//   perenna-bench [--benchmark_filter=REGEX] [Google Benchmark's other options]
//   perenna-bench --once=NAME/SIZE/SIDE    one warm call of side "module" or "floor" inside
//                                          perenna_bench_measured_call, for bench/instructions

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <stdexcept>

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Cases.h"

using Call = std::function<std::size_t()>;

/// The function that a profiler watches.
extern "C" __attribute__((noinline)) void perenna_bench_measured_call(const Call& call) {
  benchmark::DoNotOptimize(call());
}

namespace {

using namespace Bench;

constexpr std::array<unsigned, 3> Sizes = {100, 1000, 10000};
constexpr std::array<unsigned, 3> ThreadCounts = {1, 2, 4};
constexpr unsigned ThreadedSize = 1000;
constexpr int RepetitionCount = 5;
constexpr double RepetitionSeconds = 0.2;
constexpr double BatchSeconds = 200e-6; // long against reading the clock, short against other processes' turns
constexpr unsigned WarmCalls = 70;      // once through every question and more

/// The calls of one side, which ask the questions in turn: no branch and no cache line is in favour of one.
template <class Side> class Asked {
public:
  using Ask = std::function<std::size_t(Side&, const Shape&, const Question&)>;
  Asked(const std::string& file, const Shape& shape, Ask ask)
      : m_Side(file), m_Shape(shape), m_Questions(shape.Questions()), m_Ask(std::move(ask)) {}

  std::size_t operator()() { return m_Ask(m_Side, m_Shape, m_Questions[m_Turn++ % m_Questions.size()]); }
  Side& operator*() { return m_Side; }

private:
  Side m_Side;
  Shape m_Shape;
  std::vector<Question> m_Questions;
  Ask m_Ask;
  std::size_t m_Turn = 0;
};

/// Both sides of a benchmark.
struct Pair {
  Pair(const Case& measured, const std::string& file, unsigned units)
      : module(file, measured.ShapeAt(units), measured.module), floor(file, measured.ShapeAt(units), measured.floor),
        size(units), keys_left(measured.keys_left) {}

  Asked<Module> module;
  Asked<Floor> floor;
  unsigned size;
  unsigned keys_left;
  std::time_t stocked = 0;
  unsigned added = 0; // keys that either store has more since then

  /// Gives both key stores `size` keys anew before these expire or become twice as many. Runs untimed.
  void Prepare(unsigned next_calls) {
    constexpr std::time_t MaximumAgeSeconds = 4; // well within the ten seconds that a key lives
    added += next_calls * keys_left;
    if (std::time(nullptr) - stocked < MaximumAgeSeconds && added <= size) {
      return;
    }
    (*module).keys.Flush();
    (*floor).FlushKeys();
    Tarn::UUID key;
    for (unsigned i = 0; i < size; ++i) { // by turns: neither list gets the better memory
      (*module).keys.CreateSelfAccessKey(key);
      (*floor).CreateKey(key);
    }
    stocked = std::time(nullptr);
    added = 0;
  }
};

/// Of this thread's processor, in seconds: waiting for other processes does not count.
double Now() {
  std::timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Seconds a call.
template <class Side> double Time(Asked<Side>& side, unsigned count, std::size_t& sum) {
  const double start = Now();
  for (unsigned i = 0; i < count; ++i) {
    sum += side();
  }
  return (Now() - start) / count;
}

double Median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// One iteration is a batch of calls on each side, in changing order. Reported is the median batch of either side:
/// the batches that another process interrupted are no matter of ours. With several threads each has both sides to
/// itself, as the workers of a host have, and all of them turn to the same side at a time.
class Measurement : public benchmark::internal::Benchmark {
public:
  Measurement(const std::string& name, const Case& measured, std::string file, unsigned size, unsigned threads)
      : Benchmark(name.c_str()), m_Measured(measured), m_File(std::move(file)), m_Size(size) {
    UseManualTime()->MinTime(RepetitionSeconds)->Repetitions(RepetitionCount)->DisplayAggregatesOnly();
    if (threads > 1) {
      Threads(static_cast<int>(threads));
    }
    pthread_barrier_init(&m_Turn, nullptr, threads);
  }
  ~Measurement() override { pthread_barrier_destroy(&m_Turn); }
  void Run(benchmark::State& state) override;

private:
  template <class Side> double InTurn(Asked<Side>& side, unsigned count, std::size_t& sum) {
    pthread_barrier_wait(&m_Turn);
    return Time(side, count, sum);
  }

  const Case& m_Measured;
  std::string m_File;
  unsigned m_Size;
  pthread_barrier_t m_Turn{};
};

void Measurement::Run(benchmark::State& state) {
  Pair pair(m_Measured, m_File, m_Size);
  std::size_t module_sum = 0;
  std::size_t floor_sum = 0;
  unsigned batch = 1;
  for (pair.Prepare(batch); Time(pair.floor, batch, floor_sum) * batch < BatchSeconds; pair.Prepare(batch)) {
    batch *= 2;
  }
  Time(pair.module, 2 * batch - 1, module_sum); // as many calls as the other side has made

  std::vector<double> module_times;
  std::vector<double> floor_times;
  while (state.KeepRunning()) {
    pair.Prepare(batch);
    const bool module_first = module_times.size() % 2 == 0;
    if (module_first) {
      module_times.push_back(InTurn(pair.module, batch, module_sum));
    }
    floor_times.push_back(InTurn(pair.floor, batch, floor_sum));
    if (!module_first) {
      module_times.push_back(InTurn(pair.module, batch, module_sum));
    }
    state.SetIterationTime((module_times.back() + floor_times.back()) * batch);
  }
  if (module_sum != floor_sum || floor_sum == 0) {
    state.SkipWithError("module and floor disagree");
    return;
  }
  const double module = Median(module_times);
  const double floor = Median(floor_times);
  for (const auto& [counter, value] : std::initializer_list<std::pair<const char*, double>>{
           {"size", m_Size}, {"module", module}, {"floor", floor}, {"limit", m_Measured.limit}}) {
    state.counters[counter] = benchmark::Counter(value, benchmark::Counter::kAvgThreads);
  }
}

/// In place of Google Benchmark's own table: the median over the repetitions.
class RatioReporter : public benchmark::BenchmarkReporter {
public:
  bool ReportContext(const Context& /*context*/) override {
    std::printf("%-20s %6s %7s %12s %12s %6s %6s\n", "benchmark", "size", "threads", "module, us", "floor, us", "ratio",
                "limit");
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const std::string name = run.benchmark_name();
      if (run.error_occurred) {
        std::printf("%s: %s\n", name.c_str(), run.error_message.c_str());
      } else if (run.aggregate_name == "median") {
        const auto value = [&run](const char* counter) { return run.counters.at(counter).value; };
        const double ratio = value("module") / value("floor");
        std::printf("%-20s %6.0f %7d %12.2f %12.2f %6.2f", name.substr(0, name.find('/')).c_str(), value("size"),
                    static_cast<int>(run.threads), value("module") * 1e6, value("floor") * 1e6, ratio);
        if (run.threads == 1) { // what threads wait for in SQLite and the C library is added to both sides
          std::printf(" %6.2f%s", value("limit"), ratio > value("limit") ? "  above" : "");
        }
        std::printf("\n");
      }
    }
    static_cast<void>(std::fflush(stdout));
  }
};

/// Runs `work` in a process of its own and returns its peak memory, ru_maxrss, in KiB.
long InChild(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    try {
      work();
      _exit(0); // what the parent owns stays
    } catch (const std::exception& failure) {
      std::cerr << "perenna-bench: " << failure.what() << '\n';
      _exit(1);
    }
  }
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
    throw std::runtime_error("a child process failed");
  }
  return usage.ru_maxrss;
}

void Once(const Call& call) {
  for (unsigned i = 0; i < WarmCalls; ++i) {
    benchmark::DoNotOptimize(call());
  }
  perenna_bench_measured_call(call);
}

void Run(const std::filesystem::path& directory, const std::string& once) {
  std::array<long, 2> peaks{}; // of processes that hold one side and ask it once
  for (const Case& measured : Cases()) {
    for (const unsigned size : Sizes) {
      const std::string name = measured.name + "/" + std::to_string(size);
      if (!once.empty() && once != name + "/module" && once != name + "/floor") {
        continue;
      }
      const Shape shape = measured.ShapeAt(size);
      const std::string file = directory / (std::to_string(shape.filters) + (measured.tuned ? "-tuned.db" : ".db"));
      if (!std::filesystem::exists(file)) {
        InChild([&] { shape.Build(file, measured.tuned); }); // so that its memory is nobody's to account for
      }
      if (!once.empty()) {
        Pair pair(measured, file, size);
        pair.Prepare(1);
        return once == name + "/module" ? Once([&] { return pair.module(); }) : Once([&] { return pair.floor(); });
      }
      if (size == Sizes.back()) {
        peaks[0] = std::max(peaks[0], InChild([&] { Asked<Module>(file, shape, measured.module)(); }));
        peaks[1] = std::max(peaks[1], InChild([&] { Asked<Floor>(file, shape, measured.floor)(); }));
      }
      for (const unsigned threads : ThreadCounts) {
        if (threads == 1 || (measured.on_threads && size == ThreadedSize)) {
          // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the library's from here on
          benchmark::internal::RegisterBenchmarkInternal(new Measurement(name, measured, file, size, threads));
        }
      }
    }
  }
  if (!once.empty()) {
    throw std::runtime_error("no benchmark " + once);
  }

  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("peak memory at size %u: module %ld KiB, floor %ld KiB\n", Sizes.back(), peaks[0], peaks[1]);
}

} // namespace

int main(int argc, char* argv[]) {
  const std::string flag = "--once=";
  const bool once = argc == 2 && std::string(argv[1]).compare(0, flag.size(), flag) == 0;
  if (!once) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
      return 2;
    }
  }
  std::string directory = std::filesystem::temp_directory_path() / "perenna-bench-XXXXXX";
  int status = 0;
  try {
    if (mkdtemp(directory.data()) == nullptr) {
      throw std::runtime_error("cannot create a temporary directory");
    }
    Run(directory, once ? argv[1] + flag.size() : "");
  } catch (const std::exception& failure) {
    std::cerr << "perenna-bench: " << failure.what() << '\n';
    status = 1;
  }
  std::error_code ignored; // nothing to be done about it
  std::filesystem::remove_all(directory, ignored);
  return status;
}
