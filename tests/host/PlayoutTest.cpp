#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "host/Playout.h"
#include "support/BlockingOutput.h"
#include "support/CompositionFrames.h"
#include "support/GLTest.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

// Time that passes only when playout waits for it: rendering takes no time at all, but for the first
// frame, which may be given a cost (the clock's second reading comes that long after its first).
class FakeClock final : public PlayoutClock {
 public:
  Time now() override {
    if (++readings_ == 2) {
      now_ += firstFrameCost;
    }
    return now_;
  }
  void waitUntil(Time time) override { now_ = std::max(now_, time); }
  void wake() override {}

  Time firstFrameCost{};

 private:
  Time now_ = 5s;
  int readings_ = 0;
};

int largestDifference(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  if (a.size() != b.size()) {
    return 255;
  }
  int largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    largest = std::max(largest, std::abs(a[i] - b[i]));
  }
  return largest;
}

class PlayoutTest : public GLTest {
 protected:
  void SetUp() override {
    GLTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    auto creation = Renderer::create(std::move(gl_), 32, 18);
    ASSERT_TRUE(creation.renderer) << creation.error;
    renderer_ = std::move(creation.renderer);
  }

  static Composition countdown() { return Composition::load(QVA_SOURCE_DIR "/examples/countdown.qvc"); }

  const PublishedInputState& input(const PlayoutState& state, const std::string& name) {
    for (const PublishedInputState& input : state.inputs) {
      if (input.name == name) {
        return input;
      }
    }
    throw std::invalid_argument(name);
  }

  std::unique_ptr<Renderer> renderer_;
  FakeClock clock_;
};

TEST_F(PlayoutTest, OutputThatBlocksDropsFramesAndTheClockGoesOn) {
  Playout playout(*renderer_, clock_, 25, countdown());
  BlockingOutput::Record blocked;
  blocked.hold();
  BlockingOutput::Record free;
  playout.addOutput(std::make_unique<LiveOutput>(std::make_unique<BlockingOutput>(blocked), 4));
  playout.addOutput(std::make_unique<LiveOutput>(std::make_unique<BlockingOutput>(free), 200));
  EXPECT_EQ(playout.latestFrame(), nullptr);
  const auto start = clock_.now();
  playout.play(100);

  const PlayoutPacing pacing = playout.pacing();
  EXPECT_EQ(pacing.framesShown, 100);
  EXPECT_EQ(pacing.framesLate, 0);
  EXPECT_EQ(pacing.framesDropped, 0);
  // The clock ran to the last frame's due time and no further.
  EXPECT_EQ(clock_.now() - start, 99 * 40ms);
  // One frame held by the output and four waiting; the rest had no room.
  EXPECT_GE(playout.outputs()[0]->dropped(), 95);
  EXPECT_EQ(playout.outputs()[1]->dropped(), 0);
  blocked.release();
  EXPECT_EQ(playout.finishOutputs(), (std::vector<std::string>{"", ""}));
  EXPECT_EQ(playout.outputs()[0]->written() + playout.outputs()[0]->dropped(), 100);
  EXPECT_EQ(free.count(), 100u);
  const auto frame = playout.latestFrame();
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->width(), 32);
  EXPECT_EQ(frame->height(), 18);
}

TEST_F(PlayoutTest, ClockStartsOnceTheFirstFrameIsDrawn) {
  // Loading what the first frame needs may take several frame periods; no frame is dropped for it.
  clock_.firstFrameCost = 300ms;
  Playout playout(*renderer_, clock_, 25, countdown());
  const auto start = clock_.now();
  playout.play(10);
  EXPECT_EQ(playout.pacing().framesShown, 10);
  EXPECT_EQ(playout.pacing().framesLate, 0);
  EXPECT_EQ(playout.pacing().framesDropped, 0);
  EXPECT_EQ(clock_.now() - start, 300ms + 9 * 40ms);
}

TEST_F(PlayoutTest, OutputsGetEachFrameAsRenderingItAloneGivesIt) {
  const std::string path = QVA_TEST_DATA_DIR "/render-scenes/sprite-mipmaps.qvc";
  BlockingOutput::Record recorded;
  recorded.keepsFrames = true;
  {
    Playout playout(*renderer_, clock_, 25, Composition::load(path));
    playout.addOutput(std::make_unique<LiveOutput>(std::make_unique<BlockingOutput>(recorded), 20));
    playout.play(12);
    EXPECT_EQ(playout.finishOutputs(), std::vector<std::string>{""});
  }
  const auto& played = recorded.frames;
  ASSERT_EQ(played.size(), 12u);
  CompositionFrames alone(*renderer_, path);
  int moving = 0;
  for (long long index = 0; index < 12; ++index) {
    ASSERT_EQ(alone.render(index), "");
    const Bitmap& frame = alone.frame();
    const std::vector<std::uint8_t> expected(frame.bytes(),
                                             frame.bytes() + frame.rowBytes() * frame.height());
    // Under heavy load llvmpipe has been seen to shade a dozen edge bytes of a moving sprite 1 or 2 apart
    // between two renders of the same frame; a frame out of its place differs by far more.
    EXPECT_LE(largestDifference(played[static_cast<std::size_t>(index)], expected), 2) << "frame " << index;
    moving +=
        index > 0 && played[static_cast<std::size_t>(index)] != played[static_cast<std::size_t>(index - 1)];
  }
  // The frames differ, so that one out of its place would show.
  EXPECT_GT(moving, 5);
}

TEST_F(PlayoutTest, InputChangesAreCheckedAndAppliedTogetherAtTheNextFrame) {
  Playout playout(*renderer_, clock_, 25, countdown());
  const PlayoutState initial = playout.state();
  EXPECT_EQ(input(initial, "running").type, PortType::Boolean);
  EXPECT_EQ(input(initial, "duration").type, PortType::String);
  EXPECT_EQ(input(initial, "duration").value.stringValue(), "1:30");

  std::vector<PlayoutState> seen;
  std::vector<std::string> answers;
  playout.setFrameObserver([&](long long frame) {
    seen.push_back(playout.state());
    if (frame == 2) {
      // Nothing of a request with one bad change is applied.
      answers.push_back(playout.setInputs({{"duration", Value("0:05")}, {"nothing", Value(1.0)}}));
      answers.push_back(
          playout.setInputs({{"running", Value(false)}, {"duration", Value(Color{1, 0, 0, 1})}}));
      answers.push_back(playout.setInputs({{"duration", Value("0:10")}, {"running", Value(0.0)}}));
    }
  });
  playout.play(5);
  ASSERT_EQ(seen.size(), 5u);
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_NE(answers[0].find("nothing"), std::string::npos);
  EXPECT_NE(answers[1].find("duration"), std::string::npos);
  EXPECT_EQ(answers[2], "");
  EXPECT_EQ(input(seen[2], "duration").value.stringValue(), "1:30");
  EXPECT_TRUE(input(seen[2], "running").value.booleanValue());
  EXPECT_EQ(input(seen[3], "duration").value.stringValue(), "0:10");
  EXPECT_FALSE(input(seen[3], "running").value.booleanValue());
  EXPECT_EQ(seen[3].frame, 3);
  EXPECT_DOUBLE_EQ(seen[3].time, 3 / 25.0);
  ASSERT_EQ(seen[3].outputs.size(), 3u);
  EXPECT_EQ(seen[3].outputs[0].name, "remaining");
}

TEST_F(PlayoutTest, LoadFromAnotherThreadSwapsCompositionsBetweenFrames) {
  TemporaryFolder folder("playout");
  const std::string red = (folder.path() / "red.qvc").string();
  std::ofstream(red) << R"({"format": "qva-composition/1", "fps": 25, "background": [1, 0, 0, 1],
                           "patches": []})";
  Playout playout(*renderer_, clock_, 25, countdown());
  std::string beforePlay;
  std::thread([&] { beforePlay = playout.load(red); }).join();
  EXPECT_EQ(beforePlay, "the composition is not playing");
  std::atomic<long long> lastFrame = -1;
  playout.setFrameObserver([&](long long frame) { lastFrame = frame; });
  std::string missing;
  std::string loaded;
  std::thread control([&] {
    while (lastFrame < 3) {
      std::this_thread::yield();
    }
    missing = playout.load((folder.path() / "missing.qvc").string());
    loaded = playout.load(red);
    playout.stop();
  });
  playout.play(std::nullopt);
  control.join();
  EXPECT_NE(missing.find("missing.qvc"), std::string::npos);
  EXPECT_EQ(loaded, "");
  const PlayoutState state = playout.state();
  EXPECT_EQ(state.composition, red);
  EXPECT_TRUE(state.inputs.empty());
  // The loaded composition starts at its beginning.
  EXPECT_LT(state.time, static_cast<double>(state.frame) / 25);
  const auto frame = playout.latestFrame();
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->row(9)[16 * 4 + 2], 255);
  EXPECT_EQ(frame->row(9)[16 * 4 + 1], 0);
}

}  // namespace
}  // namespace qva
