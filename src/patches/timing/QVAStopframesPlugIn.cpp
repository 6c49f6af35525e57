#include "patches/timing/QVAStopframesPlugIn.h"

#include <limits>

#include "framework/Structure.h"
#include "patches/timing/PropertyListAccess.h"

namespace qva {

namespace {

constexpr const char* kCompositionDurationKey = "compositionDuration";
constexpr const char* kStopframesKey = "stopframes";
constexpr const char* kEnableKey = "enableStopframesInQVAApps";
constexpr double kNoStopframe = std::numeric_limits<float>::max();

bool propertyListBoolean(const PropertyList& value) {
  return value.is_boolean() ? value.get<bool>() : propertyListDouble(value) != 0;
}

}  // namespace

const PatchClass& QVAStopframesPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAStopframesPlugIn";
    c.name = "QVA Stopframes";
    c.description =
        "Use this patch's Time output as the input time for other patches to pause their execution when a "
        "stopframe is reached. To see the time input in another patches, you may need to right-click it and "
        "set its Timebase to \"External\".\nYou can define stopframes in this path's settings.\n\n"
        "Additionally, you can set the overall composition duration in the settings.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::TimeBase;
    c.inputs = {PortDescription::port("inputTrigger", PortType::Boolean, "Trigger", Value(false))};
    c.outputs = {
        PortDescription::port("outputTime", PortType::Number, "Time"),
        PortDescription::port("outputWaitingForTrigger", PortType::Boolean, "Waiting for Trigger"),
        PortDescription::port("outputStopframes", PortType::Structure, "Stopframes"),
        PortDescription::port("outputCompositionDuration", PortType::Number, "Composition Duration"),
        PortDescription::port("outputActive", PortType::Boolean, "Active"),
    };
    c.plugInKeys = QVAPlugIn::plugInKeys({kCompositionDurationKey, kStopframesKey, kEnableKey});
    c.create = [] { return std::make_unique<QVAStopframesPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAStopframesPlugIn::QVAStopframesPlugIn()
    : QVAPlugIn(patchClass()), stopframesStructure_(Structure::makeArray({})) {}

void QVAStopframesPlugIn::setStopframes(std::vector<QVAStopframe> stopframes) {
  stopframes_ = std::move(stopframes);
  auto structure = std::make_shared<Structure>();
  for (const QVAStopframe& stopframe : stopframes_) {
    auto entry = std::make_shared<Structure>();
    entry->set("time", stopframe.time());
    entry->set("name", stopframe.name());
    structure->append(StructureRef(std::move(entry)));
  }
  stopframesStructure_ = Value(StructureRef(std::move(structure)));
  stopframesChanged_ = true;
}

PropertyList QVAStopframesPlugIn::stopframeDictionaries() const {
  PropertyList dictionaries = PropertyList::array();
  for (const QVAStopframe& stopframe : stopframes_) {
    dictionaries.push_back(stopframe.dictionaryRepresentation());
  }
  return dictionaries;
}

PropertyList QVAStopframesPlugIn::serializedValueForKey(const std::string& key) const {
  if (key == kStopframesKey) {
    return stopframeDictionaries();
  }
  if (key == kCompositionDurationKey) {
    return compositionDuration_;
  }
  if (key == kEnableKey) {
    return enableStopframesInQVAApps_;
  }
  return QVAPlugIn::serializedValueForKey(key);
}

void QVAStopframesPlugIn::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  if (key == kStopframesKey) {
    if (auto dictionaries = dictionaryList(value, patchClass().className, key)) {
      std::vector<QVAStopframe> stopframes;
      for (const PropertyList& dictionary : *dictionaries) {
        stopframes.push_back(QVAStopframe::stopframeWithDictionaryRepresentation(dictionary));
      }
      setStopframes(std::move(stopframes));
    }
  } else if (key == kCompositionDurationKey) {
    compositionDuration_ = propertyListDouble(value);
  } else if (key == kEnableKey) {
    enableStopframesInQVAApps_ = propertyListBoolean(value);
  } else {
    QVAPlugIn::setSerializedValueForKey(value, key);
  }
}

bool QVAStopframesPlugIn::startExecution(ExecutionContext& context) {
  if (enableStopframesInQVAApps_) {
    PropertyList& userInfo = context.userInfo();
    if (!userInfo.is_object()) {
      userInfo = PropertyList::object();
    }
    userInfo[kCompositionDurationInfoKey] = compositionDuration_;
    userInfo[kStopframesInfoKey] = stopframeDictionaries();
  }
  newStartTime_ = true;
  return true;
}

double QVAStopframesPlugIn::nextStopframeAfterTime(double time) const {
  double next = -1;
  for (const QVAStopframe& stopframe : stopframes_) {
    if (stopframe.time() > time) {
      next = stopframe.time();
      break;
    }
  }
  return next < 0 ? kNoStopframe : next;
}

bool QVAStopframesPlugIn::execute(ExecutionContext&, double time, const Arguments&) {
  if (newStartTime_) {
    newStartTime_ = false;
    startTime_ = time;
  }
  const double elapsed = time - startTime_;
  if (elapsed == 0) {
    // A new run: a stop frame at 0 counts.
    waiting_ = false;
    waitTime_ = 0;
    timeOffset_ = 0;
    currentStopFrame_ = nextStopframeAfterTime(-1);
  }
  double local = elapsed - timeOffset_;
  double outputTime = local;
  if (stopframesChanged_) {
    stopframesChanged_ = false;
    currentStopFrame_ = nextStopframeAfterTime(local);
  }
  if (didValueForInputKeyChange("inputTrigger")) {
    trigger_ = inputBoolean("inputTrigger");
  }
  if (waiting_) {
    if (trigger_) {
      waiting_ = false;
      timeOffset_ += elapsed - waitTime_;
      local = elapsed - timeOffset_;
      currentStopFrame_ = nextStopframeAfterTime(local);
      outputTime = local;
    } else {
      outputTime = waitTime_ - timeOffset_;
    }
  } else if (local >= currentStopFrame_) {
    // The pause holds the time of this frame, which may lie up to a frame past the stop frame.
    waiting_ = true;
    waitTime_ = elapsed;
  }

  setValueForOutputKey(outputTime, "outputTime");
  setValueForOutputKey(waiting_, "outputWaitingForTrigger");
  setValueForOutputKey(stopframesStructure_, "outputStopframes");
  setValueForOutputKey(compositionDuration_, "outputCompositionDuration");
  setValueForOutputKey(compositionDuration_ >= outputTime, "outputActive");
  return true;
}

}  // namespace qva
