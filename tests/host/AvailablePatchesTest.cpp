#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

#include "framework/Patch.h"
#include "framework/PatchRegistry.h"
#include "host/HostPatches.h"

namespace qva {
namespace {

// Keys a class's port order names on purpose although the class has no such static port: ports added at
// run time, and the empty key that stands where the reader's output would be expected.
const std::set<std::pair<std::string, std::string>> kDeliberatelyDanglingSortedKeys = {
    {"QVALoggerPlugIn", "inputString"},
    {"Image_With_RTF_StringPlugIn", "outputCharacterCount"},
    {"Image_With_RTF_StringPlugIn", "outputWordCount"},
    {"Image_With_RTF_StringPlugIn", "outputLineCount"},
    {"RTF_File_ReaderPlugIn", ""},
};

// What every class a composition can use must hold to: the host finds it by its name, its ports have a
// key each, its port order names its ports once each, and its factory makes an instance of it.
TEST(AvailablePatches, EveryClassIsWellFormed) {
  const PatchRegistry& registry = availablePatches();
  ASSERT_FALSE(registry.classes().empty());
  for (const PatchClass* patchClass : registry.classes()) {
    SCOPED_TRACE(patchClass->className);
    EXPECT_EQ(registry.find(patchClass->className), patchClass);
    EXPECT_FALSE(patchClass->name.empty());

    std::set<std::string> staticKeys;
    for (const auto* ports : {&patchClass->inputs, &patchClass->outputs}) {
      for (const PortDescription& port : *ports) {
        EXPECT_TRUE(staticKeys.insert(port.key).second) << "port key " << port.key << " twice";
      }
    }
    if (patchClass->sortedPropertyPortKeys) {
      std::set<std::string> sorted;
      for (const std::string& key : *patchClass->sortedPropertyPortKeys) {
        EXPECT_TRUE(sorted.insert(key).second) << "sorted key " << key << " twice";
        EXPECT_TRUE(staticKeys.contains(key) ||
                    kDeliberatelyDanglingSortedKeys.contains({patchClass->className, key}))
            << "sorted key " << key << " names no port";
      }
    }

    ASSERT_TRUE(patchClass->create);
    const std::unique_ptr<Patch> patch = patchClass->create();
    ASSERT_NE(patch, nullptr);
    EXPECT_EQ(&patch->patchClass(), patchClass);
    std::set<std::string> instanceKeys;
    for (const auto& port : patch->inputPorts()) {
      EXPECT_TRUE(instanceKeys.insert(port.description.key).second) << port.description.key << " twice";
    }
    for (const auto& port : patch->outputPorts()) {
      EXPECT_TRUE(instanceKeys.insert(port.description.key).second) << port.description.key << " twice";
    }
    for (const std::string& key : staticKeys) {
      EXPECT_TRUE(instanceKeys.contains(key)) << "the instance lacks the static port " << key;
    }
  }
}

}  // namespace
}  // namespace qva
