#include <gtest/gtest.h>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/PatchRegistry.h"
#include "framework/Structure.h"
#include "patches/data/DataPatches.h"
#include "patches/data/QVAStructureSortPlugIn.h"
#include "support/PatchExecution.h"

namespace qva {
namespace {

class DataPatchesTest : public ::testing::Test {
 protected:
  DataPatchesTest() : context_(queue_) { registerDataPatches(registry_); }

  // Executes the patch once with the inputs and answers the output.
  Value run(Patch& patch, const std::vector<std::pair<std::string, Value>>& inputs,
            const std::string& output) {
    for (const auto& [key, value] : inputs) {
      EXPECT_TRUE(patch.setInputValue(key, value)) << key;
    }
    executeOnce(patch, context_);
    return patch.findOutputPort(output)->value;
  }

  TaskQueue queue_;
  ExecutionContext context_;
  PatchRegistry registry_;
};

std::vector<std::string> strings(const Value& value) {
  std::vector<std::string> result;
  const StructureRef structure = value.structureValue();
  EXPECT_NE(structure, nullptr);
  if (structure != nullptr) {
    EXPECT_TRUE(structure->isArray() || structure->empty());
    for (const Structure::Member& member : structure->members()) {
      result.push_back(member.value.stringValue());
    }
  }
  return result;
}

TEST_F(DataPatchesTest, StructureSortOrdersValuesByNaturalKeyOrder) {
  const std::unique_ptr<Patch> sort = registry_.create("QVAStructureSortPlugIn");
  ASSERT_NE(sort, nullptr);
  auto dictionary = std::make_shared<Structure>();
  dictionary->set("b", Value("value b"));
  dictionary->set("A", Value("value A"));
  dictionary->set("c10", Value("value c10"));
  dictionary->set("c9", Value("value c9"));
  const StructureRef keyed = dictionary;
  EXPECT_EQ(strings(run(*sort, {{"inputDictionary", Value(keyed)}}, "outputArray")),
            (std::vector<std::string>{"value A", "value b", "value c9", "value c10"}));
  EXPECT_EQ(strings(run(*sort, {{"inputReverse", Value(true)}}, "outputArray")),
            (std::vector<std::string>{"value c10", "value c9", "value b", "value A"}));
  EXPECT_TRUE(
      strings(run(*sort, {{"inputDictionary", Value(std::make_shared<const Structure>())}}, "outputArray"))
          .empty());
  EXPECT_TRUE(strings(run(*sort, {{"inputDictionary", Value()}}, "outputArray")).empty());
}

TEST(StructureSortOrder, NaturalCaseInsensitiveAndStable) {
  const std::vector<std::string> keys = {"item10", "Item2", "item1", "éclair", "eclair",
                                         "b",      "B",     "",      "10",     "9"};
  std::vector<std::string> sorted;
  for (const std::size_t index : QVAStructureSortPlugIn::naturalOrder(keys)) {
    sorted.push_back(keys[index]);
  }
  EXPECT_EQ(sorted, (std::vector<std::string>{"", "9", "10", "b", "B", "eclair", "éclair", "item1", "Item2",
                                              "item10"}));
}

TEST_F(DataPatchesTest, UrlStringsRoundTripThroughUtf8PercentEscapes) {
  const std::unique_ptr<Patch> decoder = registry_.create("QVAURLStringDecoderPlugIn");
  const std::unique_ptr<Patch> encoder = registry_.create("QVAURLStringEncoderPlugIn");
  ASSERT_NE(decoder, nullptr);
  ASSERT_NE(encoder, nullptr);
  EXPECT_EQ(run(*encoder, {{"inputString", Value("caf\u00e9")}}, "outputURLString"), Value("caf%C3%A9"));
  EXPECT_EQ(run(*encoder, {{"inputString", Value("a b&c")}}, "outputURLString"), Value("a%20b%26c"));
  EXPECT_EQ(run(*encoder, {{"inputString", Value("!*'();:@&=+$,/?%#[]-_.~")}}, "outputURLString"),
            Value("%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D-_.~"));
  EXPECT_EQ(run(*encoder, {{"inputString", Value("")}}, "outputURLString"), Value(""));

  EXPECT_EQ(run(*decoder, {{"inputURLString", Value("caf%C3%A9")}}, "outputString"), Value("caf\u00e9"));
  EXPECT_EQ(run(*decoder, {{"inputURLString", Value("a%20b%26c+d%2")}}, "outputString"), Value("a b&c+d%2"));
  EXPECT_EQ(run(*decoder, {{"inputURLString", Value("")}}, "outputString"), Value(""));
  // An escape that is not UTF-8 gives no string.
  EXPECT_TRUE(run(*decoder, {{"inputURLString", Value("caf%E9")}}, "outputString").isNone());
}

}  // namespace
}  // namespace qva
