#include "host/RenderOutput.h"

#include <filesystem>

#include "host/GStreamerOutput.h"
#include "host/PngSequenceOutput.h"
#include "host/RawFrameOutput.h"
#include "host/VideoFileOutput.h"

namespace qva {

RenderOutput::~RenderOutput() = default;

RenderOutput::Creation RenderOutput::open(const std::string& path, int width, int height, double frameRate,
                                          const std::string& codec, FieldOrder fieldOrder) {
  if (path == "-") {
    return {std::make_unique<RawFrameOutput>(stdout), {}};
  }
  if (path.starts_with(kGStreamerPrefix)) {
    const std::string pipeline = path.substr(std::string_view(kGStreamerPrefix).size());
    auto creation = GStreamerWriter::open(pipeline, width, height, frameRate);
    if (!creation.writer) {
      return {nullptr, creation.error};
    }
    return {std::make_unique<GStreamerOutput>(std::move(creation.writer), pipeline), {}};
  }
  const std::filesystem::path file(path);
  const std::string extension = file.extension().string();
  if (extension == ".mov" || extension == ".mp4" || extension == ".mkv") {
    auto creation = VideoWriter::open(path, width, height, frameRate, codec, fieldOrder);
    if (!creation.writer) {
      return {nullptr, creation.error};
    }
    return {std::make_unique<VideoFileOutput>(std::move(creation.writer), path), {}};
  }
  if (!codec.empty()) {
    return {nullptr, "--codec applies to video files (.mov, .mp4, .mkv) only"};
  }
  std::error_code error;
  if (!path.empty() && (path.back() == '/' || std::filesystem::is_directory(file, error))) {
    if (path.find('%') != std::string::npos) {
      return {nullptr, "an output folder name must not contain '%'"};
    }
    std::filesystem::create_directories(file, error);
    if (error) {
      return {nullptr, "cannot make the folder " + path + ": " + error.message()};
    }
    return {std::make_unique<PngSequenceOutput>((file / "out_%05d.png").string()), {}};
  }
  if (extension == ".png") {
    if (!PngSequenceOutput::isPattern(path)) {
      return {nullptr, "a PNG sequence needs a name pattern with one %d or %05d, like out_%05d.png"};
    }
    return {std::make_unique<PngSequenceOutput>(path), {}};
  }
  return {nullptr, "unknown output \"" + path +
                       "\": use NAME.mov, NAME.mp4, NAME.mkv, a PNG pattern like out_%05d.png, a folder, "
                       "gst:PIPELINE, or - for raw frames"};
}

}  // namespace qva
