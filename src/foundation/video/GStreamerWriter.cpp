#include "foundation/video/GStreamerWriter.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <thread>

#include "foundation/image/PngWriter.h"

namespace qva {

namespace {

// Frames the source holds for the pipeline at most before a frame counts as not taken yet.
constexpr guint64 kQueuedFrames = 2;
// How long to wait for a pipeline to drain at the end.
constexpr GstClockTime kDrainLimit = 10 * GST_SECOND;

std::string messageText(GstMessage* message) {
  GError* error = nullptr;
  gchar* debug = nullptr;
  gst_message_parse_error(message, &error, &debug);
  std::string text = error != nullptr ? error->message : "unknown error";
  if (GST_MESSAGE_SRC(message) != nullptr) {
    text = std::string(GST_OBJECT_NAME(GST_MESSAGE_SRC(message))) + ": " + text;
  }
  g_clear_error(&error);
  g_free(debug);
  return text;
}

}  // namespace

GStreamerWriter::Creation GStreamerWriter::open(const std::string& pipeline, int width, int height,
                                                double frameRate) {
  GError* initError = nullptr;
  if (gst_init_check(nullptr, nullptr, &initError) == FALSE) {
    std::string text = std::string("GStreamer cannot start: ") + (initError ? initError->message : "");
    g_clear_error(&initError);
    return {nullptr, text};
  }
  if (width <= 0 || height <= 0 || !(frameRate > 0)) {
    return {nullptr, "a GStreamer output needs a positive size and frame rate"};
  }
  std::unique_ptr<GStreamerWriter> writer(new GStreamerWriter());
  writer->pipelineText_ = pipeline;
  writer->width_ = width;
  writer->height_ = height;
  const std::string description = "appsrc name=qva-frames ! " + pipeline;
  GError* parseError = nullptr;
  GstElement* parsed = gst_parse_launch(description.c_str(), &parseError);
  if (parseError != nullptr) {
    std::string text = "GStreamer cannot use the pipeline \"" + pipeline + "\": " + parseError->message;
    g_clear_error(&parseError);
    if (parsed != nullptr) {
      gst_object_unref(parsed);
    }
    return {nullptr, text};
  }
  writer->pipeline_ = parsed;
  writer->source_ = gst_bin_get_by_name(GST_BIN(parsed), "qva-frames");
  writer->bus_ = gst_element_get_bus(parsed);
  if (writer->source_ == nullptr || writer->bus_ == nullptr) {
    return {nullptr, "GStreamer cannot use the pipeline \"" + pipeline + "\""};
  }
  int numerator = 0;
  int denominator = 1;
  gst_util_double_to_fraction(frameRate, &numerator, &denominator);
  GstCaps* caps =
      gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRA", "width", G_TYPE_INT, width,
                          "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, numerator,
                          denominator, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
  g_object_set(writer->source_, "caps", caps, "format", GST_FORMAT_TIME, "is-live", TRUE, "do-timestamp",
               TRUE, "block", FALSE, "max-bytes", kQueuedFrames * static_cast<guint64>(width) * height * 4,
               nullptr);
  gst_caps_unref(caps);
  if (gst_element_set_state(parsed, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    std::string error = writer->takeError();
    return {nullptr,
            "GStreamer cannot start the pipeline \"" + pipeline + "\"" + (error.empty() ? "" : ": " + error)};
  }
  if (std::string error = writer->takeError(); !error.empty()) {
    return {nullptr, "GStreamer cannot start the pipeline \"" + pipeline + "\": " + error};
  }
  return {std::move(writer), {}};
}

GStreamerWriter::~GStreamerWriter() {
  if (pipeline_ != nullptr) {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
  }
  if (bus_ != nullptr) {
    gst_object_unref(bus_);
  }
  if (source_ != nullptr) {
    gst_object_unref(source_);
  }
  if (pipeline_ != nullptr) {
    gst_object_unref(pipeline_);
  }
}

std::string GStreamerWriter::takeError() {
  GstMessage* message = gst_bus_pop_filtered(bus_, GST_MESSAGE_ERROR);
  if (message == nullptr) {
    return {};
  }
  std::string text = messageText(message);
  gst_message_unref(message);
  return text;
}

std::string GStreamerWriter::failure(const std::string& error) {
  if (error_.empty()) {
    error_ = "the GStreamer pipeline \"" + pipelineText_ + "\" failed: " + error;
  }
  return error_;
}

std::string GStreamerWriter::writeFrame(const PixelBufferView& frame) {
  if (!error_.empty()) {
    return error_;
  }
  if (frame.width != width_ || frame.height != height_ || frame.bytes == nullptr) {
    return "frame of the wrong size for the GStreamer pipeline";
  }
  // A pipeline that keeps its frames waiting is slow, and the frames offered meanwhile are dropped
  // before they get here; one that takes none for long has failed.
  const auto stalledAt = std::chrono::steady_clock::now() + kStallLimit;
  const guint64 limit = gst_app_src_get_max_bytes(GST_APP_SRC(source_));
  while (gst_app_src_get_current_level_bytes(GST_APP_SRC(source_)) >= limit) {
    if (std::string error = takeError(); !error.empty()) {
      return failure(error);
    }
    if (std::chrono::steady_clock::now() > stalledAt) {
      return failure("it took no frame for " + std::to_string(kStallLimit.count()) + " s");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  if (std::string error = takeError(); !error.empty()) {
    return failure(error);
  }
  const std::size_t rowLength = static_cast<std::size_t>(width_) * 4;
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, rowLength * height_, nullptr);
  GstMapInfo map;
  if (buffer == nullptr || gst_buffer_map(buffer, &map, GST_MAP_WRITE) == FALSE) {
    if (buffer != nullptr) {
      gst_buffer_unref(buffer);
    }
    return "out of memory for a frame of the GStreamer pipeline";
  }
  // GStreamer's BGRA carries straight alpha.
  for (int y = 0; y < height_; ++y) {
    PngWriter::unpremultiplyRow(frame.bytes + static_cast<std::size_t>(y) * frame.rowBytes,
                                map.data + static_cast<std::size_t>(y) * rowLength, width_,
                                PngWriter::ChannelOrder::BGRA);
  }
  gst_buffer_unmap(buffer, &map);
  if (gst_app_src_push_buffer(GST_APP_SRC(source_), buffer) != GST_FLOW_OK) {
    const std::string error = takeError();
    return failure(error.empty() ? std::string("it no longer takes frames") : error);
  }
  return {};
}

std::string GStreamerWriter::finish() {
  if (!error_.empty()) {
    return error_;
  }
  gst_app_src_end_of_stream(GST_APP_SRC(source_));
  GstMessage* message = gst_bus_timed_pop_filtered(
      bus_, kDrainLimit, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  std::string error;
  if (message == nullptr) {
    error = failure("it did not finish the stream within " + std::to_string(kDrainLimit / GST_SECOND) + " s");
  } else {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
      error = failure(messageText(message));
    }
    gst_message_unref(message);
  }
  gst_element_set_state(pipeline_, GST_STATE_NULL);
  return error;
}

}  // namespace qva
