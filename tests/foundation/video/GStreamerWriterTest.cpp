#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "foundation/video/GStreamerWriter.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

// A frame of half-transparent premultiplied red whose first byte counts frames.
Bitmap markedFrame(int mark) {
  auto frame = Bitmap::allocate(8, 4, Bitmap::paddedRowBytes(8));
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 8; ++x) {
      std::uint8_t* pixel = frame->row(y) + x * 4;
      pixel[2] = 100;
      pixel[3] = 128;
    }
  }
  frame->row(0)[0] = static_cast<std::uint8_t>(mark);
  return std::move(*frame);
}

// The first error of writing up to that many frames and finishing, or an empty string.
std::string firstError(GStreamerWriter& writer, int frames) {
  for (int mark = 0; mark < frames; ++mark) {
    if (std::string error = writer.writeFrame(markedFrame(mark).view()); !error.empty()) {
      return error;
    }
  }
  return writer.finish();
}

TEST(GStreamerWriterTest, FilesinkGetsTightStraightAlphaBgraFramesInOrder) {
  TemporaryFolder folder("gst-file");
  const std::string path = (folder / "frames.bgra").string();
  auto opened = GStreamerWriter::open("filesink location=" + path, 8, 4, 25);
  ASSERT_TRUE(opened.writer) << opened.error;
  ASSERT_EQ(firstError(*opened.writer, 10), "");
  std::ifstream file(path, std::ios::binary);
  const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), {});
  ASSERT_EQ(bytes.size(), 10u * 8 * 4 * 4);
  for (int mark = 0; mark < 10; ++mark) {
    const unsigned char* frame = bytes.data() + mark * 8 * 4 * 4;
    // Blue is the marker, unpremultiplied like the rest (a zero stays zero).
    EXPECT_EQ(frame[0], mark == 0 ? 0 : std::min(255, (mark * 255 + 64) / 128)) << mark;
    // 100 of 128 premultiplied is 199 straight.
    EXPECT_EQ(frame[4 + 2], 199);
    EXPECT_EQ(frame[4 + 3], 128);
  }
}

TEST(GStreamerWriterTest, CapsCarryTheFrameRateAndAlphaToThePipeline) {
  // The caps filter accepts only what the source must announce; a live fakesink keeps the clock.
  auto opened = GStreamerWriter::open(
      "capsfilter caps=video/x-raw,format=BGRA,width=8,height=4,framerate=30000/1001 ! fakesink sync=true", 8,
      4, 30000.0 / 1001.0);
  ASSERT_TRUE(opened.writer) << opened.error;
  EXPECT_EQ(firstError(*opened.writer, 5), "");

  auto mismatched = GStreamerWriter::open("capsfilter caps=video/x-raw,framerate=50/1 ! fakesink", 8, 4, 25);
  ASSERT_TRUE(mismatched.writer) << mismatched.error;
  const std::string error = firstError(*mismatched.writer, 5);
  EXPECT_NE(error.find("failed"), std::string::npos) << error;
}

TEST(GStreamerWriterTest, PipelinesThatCannotRunAreClearErrors) {
  const auto unknown = GStreamerWriter::open("videoconvert ! nosuchelementatall", 8, 4, 25);
  EXPECT_FALSE(unknown.writer);
  EXPECT_NE(unknown.error.find("cannot use the pipeline"), std::string::npos) << unknown.error;
  EXPECT_NE(unknown.error.find("nosuchelementatall"), std::string::npos) << unknown.error;

  const auto unparsable = GStreamerWriter::open("! ! fakesink", 8, 4, 25);
  EXPECT_FALSE(unparsable.writer);
  EXPECT_NE(unparsable.error.find("GStreamer"), std::string::npos) << unparsable.error;

  const auto unwritable = GStreamerWriter::open("filesink location=/nonexistent-folder/x.bgra", 8, 4, 25);
  EXPECT_FALSE(unwritable.writer);
  EXPECT_NE(unwritable.error.find("cannot start"), std::string::npos) << unwritable.error;
}

TEST(GStreamerWriterTest, SinkThatFailsMidRunIsReportedAndStaysFailed) {
  // The device that is always full fails the first write, after the pipeline has started.
  auto opened = GStreamerWriter::open("filesink location=/dev/full", 8, 4, 25);
  ASSERT_TRUE(opened.writer) << opened.error;
  const std::string error = firstError(*opened.writer, 200);
  EXPECT_NE(error.find("failed"), std::string::npos) << error;
  EXPECT_EQ(opened.writer->writeFrame(markedFrame(1).view()), error);
}

}  // namespace
}  // namespace qva
