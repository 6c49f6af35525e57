#include "patches/media/QVAMoviePlayerPlugIn.h"

#include <cmath>

#include "framework/ProcessLog.h"
#include "framework/StringFormat.h"
#include "framework/ValueTransformers.h"
#include "patches/media/QVAMovieImageProvider.h"

namespace qva {

namespace {

constexpr std::string_view kFileScheme = "file://";

// The file a port's path names: a file URL, an absolute path, or a path from the composition's folder.
std::string moviePath(const ExecutionContext& context, const std::string& path) {
  if (path.starts_with(kFileScheme)) {
    return StringToFileURL::reverseTransformedValue(path).value_or(std::string());
  }
  return context.resolvePath(path);
}

}  // namespace

const PatchClass& QVAMoviePlayerPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAMoviePlayerPlugIn";
    c.name = "QVA Movie Player";
    c.description = "QVAMovie Player";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::Idle;
    c.inputs = {
        PortDescription::port("inputMoviePath", PortType::String, "Movie Path"),
        PortDescription::port("inputMirrorXAxis", PortType::Boolean, "Mirror X Axis"),
        PortDescription::port("inputMirrorYAxis", PortType::Boolean, "Mirror Y Axis"),
        PortDescription::port("inputPlay", PortType::Boolean, "Play", Value(true)),
        PortDescription::port("inputRewind", PortType::Boolean, "Rewind"),
        PortDescription::port("inputLoop", PortType::Boolean, "Loop", Value(true)),
        PortDescription::port("inputVolume", PortType::Number, "Volume", Value(1.0))
            .withMinimum(0)
            .withMaximum(1.0),
        PortDescription::port("inputLoadMode", PortType::Index, "Load Mode", Value(std::uint32_t{0}))
            .withMaximum(2)
            .withMenu({"Preroll Only", "Force Into Memory", "Incremental"}),
        PortDescription::port("inputLoadIncrement", PortType::Number, "Load Increment", Value(1.0))
            .withMinimum(0.1),
        PortDescription::port("inputSpeedMode", PortType::Index, "Speed Mode", Value(std::uint32_t{0}))
            .withMaximum(1)
            .withMenu({"Set Playback Speed", "Set Duration"}),
        PortDescription::port("inputDurationOrScale", PortType::Number, "Playback Speed/Duration", Value(1.0))
            .withMinimum(0),
    };
    c.outputs = {
        PortDescription::port("outputImage", PortType::Image, "Image"),
        PortDescription::port("outputMovieTime", PortType::Number, "Current Time (seconds)"),
        PortDescription::port("outputDuration", PortType::Number, "Original Duration (seconds)"),
        PortDescription::port("outputWidth", PortType::Index, "Pixels Wide"),
        PortDescription::port("outputHeight", PortType::Index, "Pixels High"),
    };
    c.sortedPropertyPortKeys = std::vector<std::string>{
        "inputMoviePath",     "inputMirrorXAxis", "inputMirrorYAxis",     "inputPlay",
        "inputRewind",        "inputLoop",        "inputVolume",          "inputLoadMode",
        "inputLoadIncrement", "inputSpeedMode",   "inputDurationOrScale", "outputImage",
        "outputMovieTime",    "outputDuration",   "outputWidth",          "outputHeight"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAMoviePlayerPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAMoviePlayerPlugIn::QVAMoviePlayerPlugIn() : QVAPlugIn(patchClass()) {}

QVAMoviePlayerPlugIn::~QVAMoviePlayerPlugIn() = default;

bool QVAMoviePlayerPlugIn::startExecution(ExecutionContext& /*context*/) {
  m_show_single_frame = true;
  return true;
}

void QVAMoviePlayerPlugIn::enableExecution(ExecutionContext& context) {
  if (m_tx_ctx == nullptr) {
    m_tx_ctx = context.glContext();
    if (m_tx_ctx == nullptr) {
      ProcessLog::write("ERROR creating movie texture context!");
    }
  }
}

void QVAMoviePlayerPlugIn::stopExecution(ExecutionContext& /*context*/) {
  cleanUpForDisableExecution();
}

void QVAMoviePlayerPlugIn::cleanUpForDisableExecution() {
  pathURL.clear();
  disposeMovie();
  m_tx_ref.reset();
  m_tx_ctx = nullptr;
  m_wasDisabled = true;
}

void QVAMoviePlayerPlugIn::disposeMovie() {
  movie_.reset();
  movieTimeValue_ = 0;
  movieSize_[0] = movieSize_[1] = 0;
}

void QVAMoviePlayerPlugIn::openMovie(const std::string& path) {
  if (m_tx_ctx == nullptr) {
    ProcessLog::write("ERROR opening movie -> OpenGL texture context failed!");
    return;
  }
  disposeMovie();
  MovieFile::Opening opening = MovieFile::open(path, static_cast<MovieLoadMode>(inputIndex("inputLoadMode")),
                                               inputNumber("inputLoadIncrement"));
  if (!opening.movie) {
    // A missing file is no error: the path may name a movie still to come.
    if (opening.errorCode != MovieFile::kFileNotFound) {
      ProcessLog::write("[QVAMoviePlayerPlugIn openMovie:] " + path + ": " + opening.error);
      ProcessLog::write(formatString("memMovie_loadFilePath() returned error code; %d\n", opening.errorCode));
    }
    return;
  }
  movie_ = std::move(opening.movie);
  movieSize_[0] = static_cast<float>(movie_->width());
  movieSize_[1] = static_cast<float>(movie_->height());
  m_FPS = movie_->frameRate();
  // Frame lookups fall a quarter of a frame inside their frame.
  m_midFrame = m_FPS > 0 ? 1.0 / (m_FPS * 4.0) : 0.0;
  m_lastFrame = UINT32_MAX;
}

double QVAMoviePlayerPlugIn::movieTime() const {
  return movie_ ? static_cast<double>(movieTimeValue_) / movie_->timeScale() : 0.0;
}

double QVAMoviePlayerPlugIn::movieNormalizedTime() const {
  return movie_ && movie_->duration() > 0
             ? static_cast<double>(movieTimeValue_) / static_cast<double>(movie_->duration())
             : 0.0;
}

std::int64_t QVAMoviePlayerPlugIn::timeScale() const {
  if (!movie_) {
    return 0;
  }
  const double scale = movie_->timeScale();
  if (m_do_scale) {
    return static_cast<std::int64_t>(scale * m_duration_or_scale);
  }
  if (m_duration_or_scale > 0) {
    return static_cast<std::int64_t>(static_cast<double>(movie_->duration()) / scale / m_duration_or_scale *
                                     scale);
  }
  return 0;
}

void QVAMoviePlayerPlugIn::doMovieTask() {
  if (movie_) {
    movie_->task(movieTimeValue_);
  }
}

void QVAMoviePlayerPlugIn::getFrameForTime(std::int64_t time) {
  setMovieTime(time);
  doMovieTask();
  const MovieFrame* frame = movie_->frameForTime(time);
  std::shared_ptr<MovieTexture> texture = frame ? MovieTexture::holding(*frame, m_tx_ref) : nullptr;
  if (!texture) {
    ProcessLog::write("Arse");
    return;
  }
  m_tx_ref = std::move(texture);
}

void QVAMoviePlayerPlugIn::pollInputPorts(ExecutionContext& context, double time) {
  if (didValueForInputKeyChange("inputSpeedMode")) {
    m_do_scale = inputIndex("inputSpeedMode") == 0;
  }
  if (didValueForInputKeyChange("inputDurationOrScale")) {
    m_duration_or_scale = inputNumber("inputDurationOrScale");
  }
  bool opened = false;
  if (didValueForInputKeyChange("inputMoviePath") || m_wasDisabled) {
    if (const std::string path = inputString("inputMoviePath"); !path.empty()) {
      pathURL = moviePath(context, path);
      openMovie(pathURL);
      opened = true;
      m_first_frame = true;
      m_show_single_frame = true;
      setMovieTime(0);
      setValueForOutputKey(
          Value(movie_ ? static_cast<double>(movie_->duration()) / movie_->timeScale() : 0.0),
          "outputDuration");
      setValueForOutputKey(Value(static_cast<std::uint32_t>(movieSize_[0])), "outputWidth");
      setValueForOutputKey(Value(static_cast<std::uint32_t>(movieSize_[1])), "outputHeight");
      m_wasDisabled = false;
    }
  }
  // The mirror flags reach the image through the provider; no setting of the movie itself needs them.
  if (didValueForInputKeyChange("inputPlay")) {
    m_do_play = inputBoolean("inputPlay");
    if (!m_do_play) {
      m_pause_time = time - m_baseTime;
    } else if (m_do_rewind) {
      m_baseTime = time;
      m_do_rewind = false;
    } else {
      m_baseTime = time - m_pause_time;
      m_pause_time = 0;
    }
  }
  if (didValueForInputKeyChange("inputRewind") && inputBoolean("inputRewind")) {
    if (m_do_play) {
      m_baseTime = time;
    } else {
      m_do_rewind = true;
    }
  }
  if (didValueForInputKeyChange("inputVolume") && movie_) {
    movie_->setVolume(static_cast<std::int16_t>(static_cast<int>(inputNumber("inputVolume") * 256)));
  }
  // A movie opened above already has the load mode of the ports.
  if ((didValueForInputKeyChange("inputLoadMode") || didValueForInputKeyChange("inputLoadIncrement")) &&
      !opened && !pathURL.empty()) {
    openMovie(pathURL);
  }
}

bool QVAMoviePlayerPlugIn::execute(ExecutionContext& context, double time, const Arguments& /*arguments*/) {
  pollInputPorts(context, time);
  if (!movie_) {
    setValueForOutputKey(Value(), "outputImage");
    return true;
  }
  if (m_do_play || m_show_single_frame) {
    m_show_single_frame = false;
    if (time == 0 || m_first_frame) {
      m_baseTime = time;
      m_first_frame = false;
    }
    const double elapsed = time - m_baseTime;
    const auto frameIndex =
        static_cast<std::uint32_t>(static_cast<std::int64_t>((m_midFrame + elapsed) * m_FPS));
    if (frameIndex != m_lastFrame) {
      auto movieTimeValue =
          static_cast<std::int64_t>(static_cast<double>(timeScale()) * (elapsed + m_midFrame));
      if (const std::int64_t duration = movie_->duration(); movieTimeValue >= duration) {
        movieTimeValue = inputBoolean("inputLoop") && duration > 0 ? movieTimeValue % duration : duration;
      }
      // The image of the frame before lets go of its texture, which can then be refilled unless
      // someone downstream still holds it.
      setValueForOutputKey(Value(), "outputImage");
      getFrameForTime(movieTimeValue);
      m_lastFrame = frameIndex;
    }
  }
  if (m_tx_ref) {
    setValueForOutputKey(Value(ImageRef(std::make_shared<QVAMovieImageProvider>(
                             m_tx_ref, inputBoolean("inputMirrorXAxis"), inputBoolean("inputMirrorYAxis")))),
                         "outputImage");
  }
  setValueForOutputKey(Value(movieTime()), "outputMovieTime");
  return true;
}

}  // namespace qva
