// A playing qva steered over its control API: the lower third at 1080p50 while a client changes its
// name 1,000 times a second with PUT requests, against the same playout left alone in the same run.
// Reported: frames late during the measured seconds (the goal is none more than alone), the changes
// a second the client managed, and the latency from sending a change to the state event of the first
// frame shown with it (or with a newer value, for changes overtaken before a frame boundary).
#include <benchmark/benchmark.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

#include "framework/PropertyList.h"
#include "support/ControlEventStream.h"
#include "support/PlayingQva.h"

namespace qva {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kChangesPerSecond = 1000;
constexpr auto kMeasured = std::chrono::seconds(10);
// The lower third's slide-in and the first frames of a software renderer are not measured.
constexpr auto kSettle = std::chrono::seconds(3);

struct Pacing {
  long long shown = 0;
  long long late = 0;
  long long dropped = 0;
};

Pacing pacing(httplib::Client& client) {
  const httplib::Result result = client.Get("/api/state");
  if (!result || result->status != 200) {
    return {};
  }
  const PropertyList state = parsePropertyList(result->body);
  return {state["pacing"]["framesShown"].get<long long>(), state["pacing"]["framesLate"].get<long long>(),
          state["pacing"]["framesDropped"].get<long long>()};
}

// Changes sent and not yet seen in a frame, by number, and the latencies of those seen.
class Latencies {
 public:
  void sent(long long number) {
    std::lock_guard lock(mutex_);
    waiting_.emplace_back(number, Clock::now());
  }
  // A frame showed change `number`: it and every change sent before it have taken effect.
  void shown(long long number) {
    const auto now = Clock::now();
    std::lock_guard lock(mutex_);
    while (!waiting_.empty() && waiting_.front().first <= number) {
      milliseconds_.push_back(
          std::chrono::duration<double, std::milli>(now - waiting_.front().second).count());
      waiting_.pop_front();
    }
  }
  std::vector<double> sorted() {
    std::lock_guard lock(mutex_);
    std::vector<double> values = milliseconds_;
    std::sort(values.begin(), values.end());
    return values;
  }

 private:
  std::mutex mutex_;
  std::deque<std::pair<long long, Clock::time_point>> waiting_;
  std::vector<double> milliseconds_;
};

void playout(benchmark::State& state, bool underControl) {
  PlayingQva qva({QVA_SOURCE_DIR "/examples/lower-third.qvc", "--fps", "50"}, false);
  if (!qva.ready()) {
    state.SkipWithError(("qva play did not start: " + qva.errors()).c_str());
    return;
  }
  httplib::Client client("127.0.0.1", qva.controlPort());
  client.set_keep_alive(true);
  client.set_tcp_nodelay(true);
  std::this_thread::sleep_for(kSettle);

  Latencies latencies;
  // The state events, one a frame, say which change each frame shows.
  std::optional<ControlEventStream> events(std::in_place, qva.controlPort(), [&](const PropertyList& shown) {
    for (const PropertyList& input : shown["inputs"]) {
      const std::string value = input["value"].is_string() ? input["value"].get<std::string>() : "";
      if (input["name"] == "name" && value.starts_with("change ")) {
        latencies.shown(std::stoll(value.substr(7)));
      }
    }
  });

  long long changes = 0;
  for (auto _ : state) {
    const Pacing before = pacing(client);
    const auto start = Clock::now();
    const auto end = start + kMeasured;
    if (underControl) {
      const auto interval = std::chrono::nanoseconds(1'000'000'000 / kChangesPerSecond);
      for (auto due = start; due < end; due += interval) {
        std::this_thread::sleep_until(due);
        latencies.sent(changes);
        const std::string body = "\"change " + std::to_string(changes) + "\"";
        if (const httplib::Result result = client.Put("/api/inputs/name", body, "application/json");
            !result || result->status != 200) {
          state.SkipWithError("a change was refused");
          break;
        }
        ++changes;
      }
    } else {
      std::this_thread::sleep_until(end);
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const Pacing after = pacing(client);
    state.counters["frames_shown"] = static_cast<double>(after.shown - before.shown);
    state.counters["frames_late"] = static_cast<double>(after.late - before.late);
    state.counters["frames_dropped"] = static_cast<double>(after.dropped - before.dropped);
    state.counters["changes_per_s"] = static_cast<double>(changes) / seconds;
  }
  // The last changes reach a frame within a few frames.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  events.reset();
  const std::vector<double> sorted = latencies.sorted();
  if (!sorted.empty()) {
    state.counters["latency_median_ms"] = sorted[sorted.size() / 2];
    state.counters["latency_p99_ms"] = sorted[sorted.size() * 99 / 100];
    state.counters["latency_max_ms"] = sorted.back();
    state.counters["changes_seen"] = static_cast<double>(sorted.size());
  }
}

void BM_PlayoutAlone(benchmark::State& state) {
  playout(state, false);
}
BENCHMARK(BM_PlayoutAlone)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

void BM_PlayoutUnder1000ChangesASecond(benchmark::State& state) {
  playout(state, true);
}
BENCHMARK(BM_PlayoutUnder1000ChangesASecond)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace qva
