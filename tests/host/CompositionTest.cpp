#include <gtest/gtest.h>

#include "host/CompositionGraph.h"
#include "patches/AllPatches.h"

namespace qva {
namespace {

std::string compositionText(const std::string& patches, const std::string& rest = "") {
  return R"({"format": "qva-composition/1", "fps": 10, "duration": 1,
  "patches": [)" +
         patches + "]" + rest + "}";
}

std::string errorOf(const std::string& text) {
  try {
    TaskQueue queue;
    ExecutionContext context(queue);
    CompositionGraph graph(Composition::parse(text, "test.qvc"), bundledPatches(), context, queue);
  } catch (const CompositionError& error) {
    return error.what();
  }
  return "";
}

// Expects the composition text refused with a message that says the words given.
void expectRefusal(const std::string& text, const std::string& words) {
  const std::string error = errorOf(text);
  EXPECT_NE(error.find(words), std::string::npos) << words << " | " << error;
}

TEST(Composition, ErrorsNameTheFilePositionAndTheProblem) {
  const std::string interpolation = R"({"id": "a", "class": "QVAInterpolationPlugIn", )";
  EXPECT_EQ(errorOf(compositionText(R"({"id": "a", "class": "QVANope"})")).substr(0, 13), "test.qvc:2:36");
  expectRefusal(compositionText(R"({"id": "a", "class": "QVANope"})"), "unknown patch class");
  expectRefusal(compositionText(interpolation + R"("inputs": {"inputNope": 1}})"),
                "unknown input port \"inputNope\"");
  expectRefusal(compositionText(interpolation + R"("colour": 1})"), "unknown key \"colour\"");
  expectRefusal(compositionText(interpolation + R"("settings": {"speed": 2}})"), "unknown setting");
  expectRefusal("{\"format\": \"qva-composition/1\",", "not valid JSON");
  expectRefusal(R"({"format": 1e999})", "not valid JSON");
  expectRefusal(R"({"format": "other"})", "\"format\"");
}

// Deeply nested JSON is refused while it is read, at the first bracket too deep, before any value is
// built (a value nested 100 000 deep overflows the stack when it is copied).
TEST(Composition, NestingBeyondTheLimitIsRefusedWithItsPosition) {
  const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  const std::string prefix = R"({"id": "a", "class": "QVAInterpolationPlugIn", "settings": {"deep": )";
  const std::string text = compositionText(prefix + nested(100000) + "}}");
  const std::string tooDeep = errorOf(text);
  // The settings object is at depth 4, so the 509th bracket of its value is the first too deep.
  const std::size_t lineStart = text.find('\n') + 1;
  const std::string column =
      std::to_string(text.find(prefix) - lineStart + prefix.size() + kPropertyListMaximumDepth - 4 + 1);
  EXPECT_NE(tooDeep.find("not valid JSON"), std::string::npos) << tooDeep;
  EXPECT_NE(tooDeep.find("line 2, column " + column), std::string::npos) << tooDeep;
  EXPECT_NE(tooDeep.find("nest more than 512"), std::string::npos) << tooDeep;
  // At the limit the text is read (and the setting then refused for what it is); brackets inside
  // strings do not nest.
  const std::string atLimit = errorOf(compositionText(prefix + nested(kPropertyListMaximumDepth - 4) + "}}"));
  EXPECT_NE(atLimit.find("unknown setting"), std::string::npos) << atLimit;
  const std::string quoted = errorOf(
      compositionText(R"({"id": "a", "class": "QVAInterpolationPlugIn", "inputs": {"inputValue1": ")" +
                      std::string(100000, '[') + R"(\"[\\"}})"));
  EXPECT_EQ(quoted.find("not valid JSON"), std::string::npos) << quoted;
}

TEST(Composition, ValuesOfTheWrongTypeOrRangeAreCompositionErrors) {
  // Each must be reported as a problem of the file, not escape as a JSON library error.
  expectRefusal(R"({"format": 4})", "\"format\" must be");
  expectRefusal(R"({"format": "qva-composition/1", "canvas": {"width": 4294967297, "height": 1}})",
                "1 to 16384");
  expectRefusal(compositionText(R"({"id": "a", "class": "QVAInterpolationPlugIn", "layer": 99999999999})"),
                "must be an integer");
}

TEST(Composition, ConnectionsMustJoinKnownCompatiblePortsWithoutCycles) {
  const std::string two = R"({"id": "a", "class": "QVAInterpolationPlugIn"},
                             {"id": "b", "class": "QVAInterpolationPlugIn"})";
  const auto connecting = [&](const std::string& connections) {
    return compositionText(two, R"(, "connections": [)" + connections + "]");
  };
  expectRefusal(connecting(R"("a.outputNope -> b.inputValue1")"), "unknown output port");
  expectRefusal(connecting(R"("a.outputValue -> c.inputValue1")"), "must name a port");
  expectRefusal(connecting(R"("a.outputValue -> b.inputValue1", "b.outputValue -> a.inputValue1")"), "cycle");
  expectRefusal(connecting(R"("a.outputValue -> b.inputValue1", "a.outputValue -> b.inputValue1")"),
                "two connections");
  expectRefusal(compositionText(R"({"id": "a", "class": "QVARenderTimePlugIn"},
                                   {"id": "b", "class": "QVAInterpolationPlugIn"})",
                                R"(, "connections": ["a.outputNextNames -> b.inputValue1"])"),
                "joins a Structure output to a Number input");
}

TEST(CompositionGraph, EvaluatesInDependencyOrderWithPublishedInputs) {
  // b is declared first but reads a's output, so a must run before b in the same frame.
  const Composition composition =
      Composition::parse(compositionText(R"({"id": "b", "class": "QVAInterpolationPlugIn",
                          "inputs": {"inputHoldDuration1": 0, "inputHoldDuration2": 100}},
                         {"id": "a", "class": "QVAInterpolationPlugIn",
                          "inputs": {"inputHoldDuration1": 0, "inputHoldDuration2": 100,
                                     "inputInterpolationDuration1": 2}})",
                                         R"(, "connections": ["a.outputValue -> b.inputValue2"],
                         "publishedInputs": {"top": "a.inputValue2"},
                         "publishedOutputs": {"result": "b.outputValue"})"),
                         "graph.qvc");
  TaskQueue queue;
  ExecutionContext context(queue);
  CompositionGraph graph(composition, bundledPatches(), context, queue);
  graph.setPublishedInput("top", Value(8.0));
  EXPECT_THROW(graph.setPublishedInput("bottom", Value(1.0)), std::invalid_argument);
  graph.evaluate(1.0);
  // a is halfway up its 2-second ramp to 8; b is at the end of its 0.5 s ramp towards a's value.
  EXPECT_EQ(graph.outputValue({"a", "outputValue"}), Value(4.0));
  EXPECT_EQ(graph.outputValue({"b", "outputValue"}), Value(4.0));
  EXPECT_EQ(graph.nodes()[graph.order().front()].id, "a");
}

}  // namespace
}  // namespace qva
