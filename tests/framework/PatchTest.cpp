#include <gtest/gtest.h>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/PatchRegistry.h"
#include "framework/QVAPlugIn.h"

namespace qva {
namespace {

// A patch that exposes the framework's self-operations to the test.
class ProbePatch final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass() {
    static const PatchClass patchClass = [] {
      PatchClass c;
      c.className = "ProbePatch";
      c.name = "Probe";
      c.inputs = {PortDescription::port("inputA", PortType::Number, "A", Value(1.0)),
                  PortDescription::port("inputB", PortType::Index, "B"),
                  PortDescription::port("inputC", PortType::String, "C", Value("c"))};
      c.outputs = {PortDescription::port("outputX", PortType::Number, "X"),
                   PortDescription::port("outputY", PortType::Number, "Y")};
      c.sortedPropertyPortKeys = std::vector<std::string>{"inputC", "outputY"};
      c.plugInKeys = QVAPlugIn::plugInKeys({"mode"});
      c.create = [] { return std::make_unique<ProbePatch>(); };
      return c;
    }();
    return patchClass;
  }

  ProbePatch() : QVAPlugIn(patchClass()) {}

  bool execute(ExecutionContext&, double, const Arguments&) override {
    changedA = didValueForInputKeyChange("inputA");
    changedB = didValueForInputKeyChange("inputB");
    setValueForOutputKey(inputNumber("inputA"), "outputX");
    return true;
  }

  using Patch::addInputPort;
  using Patch::addOutputPort;
  using Patch::removeInputPort;
  using Patch::setValueForOutputKey;
  using Patch::valueForInputKey;

  bool changedA = false;
  bool changedB = false;
};

class PatchFixture : public ::testing::Test {
 protected:
  void runFrame() {
    patch.updateInputChangeFlags();
    patch.execute(context, 0, Arguments());
    patch.finishExecution();
  }

  TaskQueue queue;
  ExecutionContext context{queue};
  ProbePatch patch;
};

std::vector<std::string> keys(const auto& ports) {
  std::vector<std::string> keys;
  for (const auto& port : ports) {
    keys.push_back(port.description.key);
  }
  return keys;
}

TEST_F(PatchFixture, PortsComeInSortedOrderThenDeclarationOrderThenAddedOrder) {
  EXPECT_EQ(keys(patch.inputPorts()), (std::vector<std::string>{"inputC", "inputA", "inputB"}));
  EXPECT_EQ(keys(patch.outputPorts()), (std::vector<std::string>{"outputY", "outputX"}));
  patch.addInputPort(PortType::Boolean, "inputDynamic", {});
  patch.removeInputPort("inputNotThere");
  EXPECT_EQ(keys(patch.inputPorts()).back(), "inputDynamic");
  patch.removeInputPort("inputDynamic");
  EXPECT_EQ(patch.findInputPort("inputDynamic"), nullptr);
}

TEST_F(PatchFixture, PortsStartWithTheirDefaultOrTheirTypesInitialValue) {
  EXPECT_EQ(patch.findInputPort("inputA")->value, Value(1.0));
  EXPECT_EQ(patch.findInputPort("inputB")->value, Value(std::uint32_t{0}));
  EXPECT_EQ(patch.findOutputPort("outputX")->value, Value(0.0));
  const std::pair<PortType, Value> initialValues[] = {
      {PortType::Boolean, Value(false)}, {PortType::Index, Value(std::uint32_t{0})},
      {PortType::Number, Value(0.0)},    {PortType::String, Value()},
      {PortType::Color, Value()},        {PortType::Image, Value()},
      {PortType::Structure, Value()}};
  for (const auto& [type, initial] : initialValues) {
    patch.addInputPort(type, "inputAdded", {});
    patch.addOutputPort(type, "outputAdded", {});
    EXPECT_EQ(patch.findInputPort("inputAdded")->value, initial) << portTypeName(type);
    EXPECT_EQ(patch.findOutputPort("outputAdded")->value, initial) << portTypeName(type);
  }
  EXPECT_TRUE(patch.setInputValue("inputB", Value(4.8)));
  EXPECT_EQ(patch.findInputPort("inputB")->value, Value(std::uint32_t{4}));
  EXPECT_FALSE(patch.setInputValue("inputMissing", Value(1.0)));
}

TEST_F(PatchFixture, ChangeFlagsCompareWithThePreviousExecution) {
  runFrame();
  EXPECT_TRUE(patch.changedA) << "every input counts as changed at the first execution";
  EXPECT_TRUE(patch.changedB);
  patch.setInputValue("inputA", Value(1.0));
  patch.setInputValue("inputB", Value(0.0));
  runFrame();
  EXPECT_FALSE(patch.changedA) << "setting the default is no change";
  EXPECT_FALSE(patch.changedB) << "setting the initial value of a port without a default is no change";
  patch.setInputValue("inputA", Value(2.0));
  patch.setInputValue("inputA", Value(1.0));
  runFrame();
  EXPECT_FALSE(patch.changedA) << "a value changed and restored between executions is no change";
  patch.setInputValue("inputA", Value(5.0));
  patch.updateInputChangeFlags();
  EXPECT_TRUE(patch.anyInputChanged());
  patch.execute(context, 0, Arguments());
  patch.finishExecution();
  EXPECT_TRUE(patch.changedA);
  EXPECT_FALSE(patch.anyInputChanged()) << "the framework clears the flags after each execution";
  EXPECT_EQ(patch.findOutputPort("outputX")->value, Value(5.0));
}

// A key the patch has no port for is a misspelling in the patch itself.
TEST_F(PatchFixture, MisspeltPortKeysStopDebugBuildsAndAreHarmlessInReleaseBuilds) {
#ifdef NDEBUG
  EXPECT_TRUE(patch.valueForInputKey("inputAa").isNone());
  patch.setValueForOutputKey(Value(3.0), "outputXx");
  EXPECT_EQ(patch.findOutputPort("outputX")->value, Value(0.0));
  EXPECT_EQ(patch.findOutputPort("outputXx"), nullptr);
#else
  EXPECT_DEATH(patch.valueForInputKey("inputAa"), "ProbePatch reads or writes \"inputAa\"");
  EXPECT_DEATH(patch.setValueForOutputKey(Value(3.0), "outputXx"), "\"outputXx\"");
#endif
}

TEST_F(PatchFixture, SavedVersionIsRecordedButAlwaysSavedAsTheCurrentVersion) {
  EXPECT_EQ(patch.patchClass().plugInKeys, (std::vector<std::string>{"savedVersion", "mode"}));
  EXPECT_EQ(patch.savedVersion(), 0u);
  patch.setSerializedValueForKey(7, "savedVersion");
  EXPECT_EQ(patch.savedVersion(), 7u);
  EXPECT_EQ(patch.serializedValueForKey("savedVersion"), PropertyList(0));
  patch.setSerializedValueForKey("not a number", "savedVersion");
  EXPECT_EQ(patch.savedVersion(), 0u);
  patch.setSerializedValueForKey("fast", "mode");
  EXPECT_EQ(patch.serializedValueForKey("mode"), PropertyList("fast"));
  EXPECT_TRUE(patch.serializedValueForKey("unknown").is_null());
  EXPECT_EQ(QVAPlugIn::minumumPlugInVersion(), 0);
}

TEST(PatchRegistry, FindsAndCreatesByClassName) {
  PatchRegistry registry;
  registry.add(ProbePatch::patchClass());
  ASSERT_NE(registry.find("ProbePatch"), nullptr);
  EXPECT_EQ(registry.find("Nope"), nullptr);
  EXPECT_EQ(registry.create("Nope"), nullptr);
  EXPECT_NE(registry.create("ProbePatch"), nullptr);
  EXPECT_EQ(registry.classes().size(), 1u);
  EXPECT_EQ(ProbePatch::patchClass().attributesForPropertyPortWithKey("inputA")->name, "A");
  EXPECT_EQ(ProbePatch::patchClass().attributesForPropertyPortWithKey("inputZ"), nullptr);
}

}  // namespace
}  // namespace qva
