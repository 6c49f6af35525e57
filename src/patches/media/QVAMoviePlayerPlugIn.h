#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/media/MovieFile.h"
#include "foundation/media/MovieTexture.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Movie Player": plays a movie file into the composition as a texture image, frame-accurately
// against the host's clock. Each execution works out the movie frame of the patch time and fetches it
// only when it changes. Speed is a factor or a wanted duration; the movie plays from disk, from memory,
// or from memory loaded ahead by a background thread.
class QVAMoviePlayerPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAMoviePlayerPlugIn();
  ~QVAMoviePlayerPlugIn() override;

  bool startExecution(ExecutionContext& context) override;
  void enableExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  void stopExecution(ExecutionContext& context) override;

  // Opens the movie at a resolved path with the load mode and increment of the ports.
  void openMovie(const std::string& path);
  void disposeMovie();
  // Shows the movie at a time in movie units: the frame's texture becomes the current one.
  void getFrameForTime(std::int64_t time);
  void setMovieTime(std::int64_t time) { movieTimeValue_ = time; }
  // Seconds.
  double movieTime() const;
  // Movie time ÷ duration.
  double movieNormalizedTime() const;
  Rect movieBounds() const { return {0, 0, movieSize_[0], movieSize_[1]}; }
  void doMovieTask();
  // Movie units a second of patch time, as the speed mode asks.
  std::int64_t timeScale() const;
  void pollInputPorts(ExecutionContext& context, double time);
  void cleanUpForDisableExecution();

  const MovieFile* movie() const { return movie_.get(); }
  double midFrame() const { return m_midFrame; }
  double fps() const { return m_FPS; }

 private:
  std::unique_ptr<MovieFile> movie_;
  // The host's GL context, where frame textures are made; null without one.
  GLContext* m_tx_ctx = nullptr;
  float movieSize_[2] = {0, 0};
  std::shared_ptr<MovieTexture> m_tx_ref;
  std::string pathURL;
  std::int64_t movieTimeValue_ = 0;
  double m_midFrame = 0;
  double m_FPS = 0;
  double m_baseTime = 0;
  std::uint32_t m_lastFrame = UINT32_MAX;
  double m_duration_or_scale = 1.0;
  bool m_do_scale = true;
  bool m_do_play = false;
  bool m_first_frame = false;
  bool m_wasDisabled = false;
  bool m_do_rewind = false;
  bool m_show_single_frame = false;
  double m_pause_time = 0;
};

}  // namespace qva
