#include "patches/timing/QVARenderTimePlugIn.h"

#include "framework/Structure.h"
#include "patches/timing/PropertyListAccess.h"
#include "patches/timing/ReferenceTime.h"

namespace qva {

namespace {

constexpr const char* kNextNames = "outputNextNames";

Value stringArray(const std::vector<std::string>& strings) {
  std::vector<Value> values(strings.begin(), strings.end());
  return Value(Structure::makeArray(std::move(values)));
}

std::optional<std::vector<std::string>> namesEntry(const PropertyList& entry) {
  if (!entry.is_array()) {
    return std::nullopt;
  }
  std::vector<std::string> names;
  for (const PropertyList& name : entry) {
    names.push_back(propertyListString(name));
  }
  return names;
}

}  // namespace

const PatchClass& QVARenderTimePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    const auto number = [](const char* key, const char* name) {
      return PortDescription::port(key, PortType::Number, name);
    };
    PatchClass c;
    c.className = "QVARenderTimePlugIn";
    c.name = "QVA Render Time";
    c.description = "Gives the current time in seconds from lumo:run";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::None;
    c.outputs = {
        number("outputTime", "Time"),
        PortDescription::port("outputCurrentName", PortType::String, "Current Clip Name"),
        PortDescription::port(kNextNames, PortType::Structure, "Next Clip Names").withExplicitType(),
        number("outputElapsedTime", "Elapsed Time"),
        number("outputAbsoluteElapsedTime", "Absolute Elapsed Time"),
        number("outputRemainingTime", "Remaining Time"),
        number("outputCurrentDuration", "Current Duration"),
        number("outputPercentageElapsed", "Percentage Elapsed"),
        number("outputVideoOpacity", "Video Opacity"),
        number("outputVideoAlpha", "Video Alpha"),
        PortDescription::port("outputVideoActive", PortType::Boolean, "Video Active"),
    };
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVARenderTimePlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVARenderTimePlugIn::QVARenderTimePlugIn() : QVAPlugIn(patchClass()) {}

void QVARenderTimePlugIn::updateCurrentName(const Arguments& arguments) {
  const PropertyList& entry = dictionaryEntry(arguments, "currentName");
  const std::optional<std::string> name =
      entry.is_null() ? std::nullopt : std::optional<std::string>(propertyListString(entry));
  if (!name || name != currentName_) {
    currentName_ = name;
    setValueForOutputKey(name ? Value(*name) : Value(), "outputCurrentName");
  }
}

void QVARenderTimePlugIn::updateNextNames(const Arguments& arguments) {
  const std::optional<std::vector<std::string>> names = namesEntry(dictionaryEntry(arguments, "nextNames"));
  if (!names || !nextNames_ || names != nextNames_) {
    nextNames_ = names;
    setValueForOutputKey(names ? stringArray(*names) : Value(), kNextNames);
  }
}

bool QVARenderTimePlugIn::execute(ExecutionContext&, double, const Arguments& arguments) {
  if (!arguments.is_object()) {
    // Hosts other than the playout host: the wall clock and a preview list.
    setValueForOutputKey(currentReferenceTime(), "outputTime");
    setValueForOutputKey(stringArray({"One", "Two", "Three"}), kNextNames);
    return true;
  }
  const PropertyList& referenceTime = dictionaryEntry(arguments, "referenceTime");
  setValueForOutputKey(referenceTime.is_null() ? currentReferenceTime() : propertyListDouble(referenceTime),
                       "outputTime");
  updateCurrentName(arguments);
  updateNextNames(arguments);
  for (const auto& [entry, key] : {std::pair{"elapsedTime", "outputElapsedTime"},
                                   {"absoluteElapsedTime", "outputAbsoluteElapsedTime"},
                                   {"remainingTime", "outputRemainingTime"},
                                   {"currentDuration", "outputCurrentDuration"},
                                   {"percentageElapsed", "outputPercentageElapsed"}}) {
    setValueForOutputKey(propertyListDouble(dictionaryEntry(arguments, entry)), key);
  }
  for (const auto& [entry, key] :
       {std::pair{"opacity", "outputVideoOpacity"}, {"alpha", "outputVideoAlpha"}}) {
    const PropertyList& value = dictionaryEntry(arguments, entry);
    if (!value.is_null()) {
      setValueForOutputKey(propertyListDouble(value), key);
    }
  }
  setValueForOutputKey(arguments.contains("texture"), "outputVideoActive");
  return true;
}

}  // namespace qva
