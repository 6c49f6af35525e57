#include <gtest/gtest.h>

#include "framework/Image.h"
#include "patches/timing/QVADelayPlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

QVADelayPlugIn& delay(PatchDriver& driver) {
  return static_cast<QVADelayPlugIn&>(driver.patch());
}

ImageRef pixelImage() {
  static std::uint8_t pixel[16] = {1, 2, 3, 4};
  return std::make_shared<BufferImage>(1, 1, 16, pixel, nullptr);
}

TEST(DelayTest, StartsAsBooleanAndRebuildsPortsForTheType) {
  PatchDriver driver(std::make_unique<QVADelayPlugIn>());
  EXPECT_EQ(delay(driver).portType(), PortType::Boolean);
  EXPECT_EQ(portKeys(driver.patch().inputPorts()), (std::vector<std::string>{"inputDelay", "inputValue"}));
  EXPECT_EQ(driver.patch().findInputPort("inputValue")->description.attributes.name, "Boolean");
  driver.setSetting("typeIndex", 5);
  EXPECT_EQ(portKeys(driver.patch().outputPorts()), (std::vector<std::string>{"outputValue", "outputAlpha"}));
  EXPECT_EQ(driver.patch().findInputPort("inputValue")->description.type, PortType::Image);
  EXPECT_EQ(driver.patch().findOutputPort("outputAlpha")->description.attributes.defaultValue.numberValue(),
            1.0);
  driver.setSetting("typeIndex", 2);
  EXPECT_EQ(portKeys(driver.patch().outputPorts()), (std::vector<std::string>{"outputValue"}));
  EXPECT_EQ(driver.patch().findInputPort("inputValue")->description.attributes.name, "Number");
  // An index past the table changes nothing but is remembered.
  driver.setSetting("typeIndex", 9);
  EXPECT_EQ(delay(driver).portType(), PortType::Number);
  EXPECT_EQ(driver.patch().serializedValueForKey("typeIndex"), 9);
  EXPECT_EQ(QVADelayPlugIn::patchClass().plugInKeys,
            (std::vector<std::string>{"savedVersion", "typeIndex", "representationIndex"}));
}

TEST(DelayTest, LastChangeWinsAndRestartsTheWait) {
  PatchDriver driver(std::make_unique<QVADelayPlugIn>());
  driver.setSetting("typeIndex", 2);
  driver.start();
  driver.set("inputValue", Value(5.0));
  driver.frame(0);
  driver.set("inputValue", Value(7.0));
  EXPECT_DOUBLE_EQ(driver.afterFrame(0.5).lastExecutionTime(), 0.5);
  driver.frame(1.0);
  // Nothing released yet: the Number output holds its initial 0.
  EXPECT_EQ(driver.output("outputValue"), Value(0.0));
  EXPECT_DOUBLE_EQ(driver.lastExecutionTime(), 1.5);
  EXPECT_EQ(driver.afterFrame(1.49).output("outputValue"), Value(0.0));
  EXPECT_EQ(driver.afterFrame(1.5).number("outputValue"), 7.0);
  EXPECT_EQ(driver.afterFrame(2).lastExecutionTime(), 3.4028234663852886e38);
}

TEST(DelayTest, ChangingTheDelayMovesThePendingRelease) {
  PatchDriver driver(std::make_unique<QVADelayPlugIn>());
  driver.setSetting("typeIndex", 4);
  driver.set("inputValue", Value("news"));
  driver.frame(0);
  driver.set("inputDelay", Value(3.0));
  driver.frame(0.5);
  EXPECT_TRUE(driver.afterFrame(2.9).output("outputValue").isNone());
  EXPECT_EQ(driver.afterFrame(3.0).string("outputValue"), "news");
}

TEST(DelayTest, ZeroDelayReleasesAtOnce) {
  PatchDriver driver(std::make_unique<QVADelayPlugIn>());
  driver.setSetting("typeIndex", 5);
  driver.setSetting("representationIndex", 1);
  driver.set("inputDelay", Value(0.0));
  const ImageRef image = pixelImage();
  driver.set("inputValue", Value(image));
  driver.frame(0);
  const ImageRef out = driver.output("outputValue").imageValue();
  ASSERT_TRUE(out);
  // The output shares the input's pixels instead of copying them.
  EXPECT_EQ(out->pixelBuffer()->bytes, image->pixelBuffer()->bytes);
  EXPECT_NE(out, image);
  EXPECT_EQ(driver.number("outputAlpha"), 1.0);
}

TEST(DelayTest, ImageFadesOutBeforeAndInAfterTheChange) {
  PatchDriver driver(std::make_unique<QVADelayPlugIn>());
  driver.setSetting("typeIndex", 5);
  driver.set("inputDelay", Value(2.0));
  driver.set("inputValue", Value(pixelImage()));
  EXPECT_NEAR(driver.afterFrame(0).number("outputAlpha"), 1.0, 1e-9);
  EXPECT_NEAR(driver.afterFrame(1).number("outputAlpha"), 0.5, 1e-9);
  EXPECT_TRUE(driver.output("outputValue").isNone());
  EXPECT_NEAR(driver.afterFrame(2).number("outputAlpha"), 0.0, 1e-9);
  EXPECT_TRUE(driver.output("outputValue").imageValue());
  EXPECT_NEAR(driver.afterFrame(3).number("outputAlpha"), 0.5, 1e-9);
  // Frames keep coming while the fade runs, and half a second beyond.
  EXPECT_DOUBLE_EQ(driver.lastExecutionTime(), 3);
  EXPECT_NEAR(driver.afterFrame(4.4).number("outputAlpha"), 1.0, 1e-9);
  EXPECT_EQ(driver.afterFrame(4.6).lastExecutionTime(), 3.4028234663852886e38);
}

TEST(DelayTest, DisableDropsTheValueButNotTheRelease) {
  PatchDriver driver(std::make_unique<QVADelayPlugIn>());
  driver.setSetting("typeIndex", 1);
  driver.set("inputValue", Value(std::uint32_t{4}));
  driver.frame(0);
  EXPECT_EQ(driver.afterFrame(1).output("outputValue").indexValue(), 4u);
  driver.set("inputValue", Value(std::uint32_t{8}));
  driver.frame(2);
  driver.patch().disableExecution(driver.context());
  EXPECT_TRUE(driver.afterFrame(3).output("outputValue").isNone());
}

}  // namespace
}  // namespace qva
