#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "foundation/media/MovieFile.h"
#include "framework/MainThreadQueue.h"

namespace qva {

// Opens movie files on a background thread, one at a time, and hands each result to the host thread
// through its queue. Opening can read a whole file into memory, so the host never waits for it. Only the
// newest request counts: a request made while another is waiting or in flight supersedes it, and the
// older one's movie is dropped without being delivered.
class MovieOpener {
 public:
  using Delivery = std::function<void(MovieFile::Opening)>;

  MovieOpener();
  // Cancels, without waiting for an opening in flight.
  ~MovieOpener();
  MovieOpener(const MovieOpener&) = delete;
  MovieOpener& operator=(const MovieOpener&) = delete;

  // Starts opening the file; delivery runs on the host thread when the queue is pumped, unless a later
  // open or a cancel came first.
  void open(MainThreadQueue& queue, const std::string& path, MovieLoadMode mode, double incrementSeconds,
            Delivery delivery);
  // Drops every request not yet delivered and returns at once. Once it returns nothing more is posted to
  // the queue, so the queue and the delivery's owner may go.
  void cancel();
  // A request has been made and neither delivered nor dropped.
  bool isOpening() const;

 private:
  struct Request;
  struct State;

  static void work(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
};

}  // namespace qva
