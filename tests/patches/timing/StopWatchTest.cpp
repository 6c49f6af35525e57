#include <gtest/gtest.h>

#include "patches/timing/QVAStopWatchFormatter.h"
#include "patches/timing/QVAStopWatchPlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

// A stopwatch reset on its first frame at host time 10, playing from there.
void startPlaying(PatchDriver& watch, const char* duration, std::uint32_t direction,
                  const char* format = "") {
  watch.set("inputDuration", duration);
  watch.set("inputCountDirection", direction);
  watch.set("inputFormat", format);
  watch.set("inputReset", true);
  watch.set("inputPlayPause", true);
  watch.start();
  watch.frame(10);
}

TEST(QVAStopWatchPlugIn, CountsDownToZeroAndSignalsTheEnd) {
  PatchDriver watch = driverFor<QVAStopWatchPlugIn>();
  startPlaying(watch, "1:30", 1);
  EXPECT_EQ(watch.string("outputTimeString"), "01:30");
  EXPECT_EQ(watch.afterFrame(11).string("outputTimeString"), "01:29");
  EXPECT_FALSE(watch.boolean("outputElapsed"));
  EXPECT_EQ(watch.afterFrame(100).string("outputTimeString"), "00:00");
  EXPECT_TRUE(watch.boolean("outputElapsed"));
  EXPECT_EQ(watch.afterFrame(200).string("outputTimeString"), "00:00");
}

TEST(QVAStopWatchPlugIn, ParsesDurationTexts) {
  EXPECT_EQ(QVAStopWatchPlugIn::durationForString("1:30"), 90);
  EXPECT_EQ(QVAStopWatchPlugIn::durationForString("90"), 90);
  EXPECT_EQ(QVAStopWatchPlugIn::durationForString("2:03:04"), 7384);
  EXPECT_EQ(QVAStopWatchPlugIn::durationForString("x:1y"), 1);  // leading integers, non-digits read as 0
  EXPECT_EQ(QVAStopWatchPlugIn::durationForString(""), 0);
  for (const char* malformed : {"1:5", "1:2:03", "1:02:3", "1:02:03:04", "1:300", "::"}) {
    EXPECT_EQ(QVAStopWatchPlugIn::durationForString(malformed), -1) << malformed;
  }
  EXPECT_EQ(QVAStopWatchPlugIn::durationForString("1:\xC3\xA9"
                                                  "5"),
            60);  // two characters, three bytes

  // Counting up to -1 ends at once, and format 2 shows the negative seconds as they are.
  PatchDriver watch = driverFor<QVAStopWatchPlugIn>();
  startPlaying(watch, "1:5", 0);
  EXPECT_EQ(watch.string("outputTimeString"), "00:-1");
  EXPECT_TRUE(watch.boolean("outputElapsed"));
}

TEST(QVAStopWatchPlugIn, FormatsAndKeepsTheFormatOnUnknownText) {
  PatchDriver seconds = driverFor<QVAStopWatchPlugIn>();
  startPlaying(seconds, "200", 0, "ss");
  EXPECT_EQ(seconds.afterFrame(135).string("outputTimeString"), "125");

  PatchDriver watch = driverFor<QVAStopWatchPlugIn>();
  startPlaying(watch, "2:00:00", 0, "mm:ss");
  EXPECT_EQ(watch.afterFrame(3735).string("outputTimeString"), "62:05");
  watch.set("inputFormat", "HH:MM:SS");
  EXPECT_EQ(watch.afterFrame(3735).string("outputTimeString"), "01:02:05");
  watch.set("inputFormat", "Hh:mm:ss");
  EXPECT_EQ(watch.afterFrame(3735).string("outputTimeString"), "01:02:05");
}

TEST(QVAStopWatchPlugIn, ResetActsOnlyWhilePausedAndPlayResumes) {
  PatchDriver watch = driverFor<QVAStopWatchPlugIn>();
  startPlaying(watch, "60", 0);
  watch.frame(20);
  watch.set("inputReset", false);
  watch.frame(21);
  watch.set("inputReset", true);
  EXPECT_EQ(watch.afterFrame(22).string("outputTimeString"), "00:12");  // ignored while playing

  watch.set("inputPlayPause", false);
  EXPECT_EQ(watch.afterFrame(30).string("outputTimeString"), "00:12");  // paused: the value stands
  watch.set("inputPlayPause", true);
  watch.frame(40);
  EXPECT_EQ(watch.afterFrame(45).string("outputTimeString"), "00:17");  // resumed from the shown value

  watch.set("inputPlayPause", false);
  watch.set("inputReset", false);
  watch.frame(46);
  watch.set("inputReset", true);
  EXPECT_EQ(watch.afterFrame(47).string("outputTimeString"), "00:00");
}

TEST(QVAStopWatchFormatter, RefusesInvalidFormats) {
  QVAStopWatchFormatter formatter;
  EXPECT_EQ(formatter.formatTime(5), std::nullopt);  // no format yet
  formatter.setFormat(1);
  formatter.setFormat(4);
  EXPECT_EQ(formatter.format(), 1);
  EXPECT_EQ(formatter.formatTime(-3725.9), "-1:-2:-5");
  EXPECT_EQ(formatter.formatTime(std::numeric_limits<double>::quiet_NaN()), "00:00:00");
  EXPECT_TRUE(formatter.formatTime(1e300).has_value());
}

}  // namespace
}  // namespace qva
