#include "patches/data/QVAStructureSortPlugIn.h"

#include <unicode/coll.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>
#include <numeric>

#include "framework/Structure.h"

namespace qva {

namespace {

// The order a file browser shows names in: numeric digit runs, no case distinction (secondary strength
// still tells accents apart).
std::unique_ptr<icu::Collator> makeNaturalCollator() {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status)) {
    return nullptr;
  }
  collator->setStrength(icu::Collator::SECONDARY);
  collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
  return collator;
}

}  // namespace

const PatchClass& QVAStructureSortPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAStructureSortPlugIn";
    c.name = "QVA Structure Sort";
    c.description =
        "Sorts a dictionary structure using its keys and outputs the objects as an array structure.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputDictionary", PortType::Structure, "Dictionary"),
        PortDescription::port("inputReverse", PortType::Boolean, "Reverse", Value(false)),
    };
    c.outputs = {PortDescription::port("outputArray", PortType::Structure, "Array")};
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputDictionary", "inputReverse", "outputArray"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAStructureSortPlugIn>(); };
    return c;
  }();
  return patchClass;
}

std::vector<std::size_t> QVAStructureSortPlugIn::naturalOrder(const std::vector<std::string>& keys) {
  std::vector<std::size_t> order(keys.size());
  std::iota(order.begin(), order.end(), 0);
  // Collation keys are computed once per key; comparing them is a byte comparison.
  static const std::unique_ptr<icu::Collator> prototype = makeNaturalCollator();
  if (prototype == nullptr) {
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    return order;
  }
  const std::unique_ptr<icu::Collator> collator(prototype->clone());
  std::vector<std::string> sortKeys(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(keys[i]);
    const int32_t length = collator->getSortKey(text, nullptr, 0);
    sortKeys[i].resize(static_cast<std::size_t>(std::max(length, 0)));
    collator->getSortKey(text, reinterpret_cast<uint8_t*>(sortKeys[i].data()), length);
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return sortKeys[a] < sortKeys[b]; });
  return order;
}

QVAStructureSortPlugIn::QVAStructureSortPlugIn() : QVAPlugIn(patchClass()) {}

bool QVAStructureSortPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  const StructureRef dictionary = valueForInputKey("inputDictionary").structureValue();
  std::vector<Value> values;
  if (dictionary != nullptr && !dictionary->empty()) {
    // Members of an array count as keyed by their position.
    std::vector<std::string> keys;
    keys.reserve(dictionary->size());
    for (std::size_t i = 0; i < dictionary->size(); ++i) {
      keys.push_back(dictionary->members()[i].key.value_or(std::to_string(i)));
    }
    for (const std::size_t index : naturalOrder(keys)) {
      values.push_back(dictionary->at(index));
    }
    if (inputBoolean("inputReverse")) {
      std::reverse(values.begin(), values.end());
    }
  }
  setValueForOutputKey(Value(Structure::makeArray(std::move(values))), "outputArray");
  return true;
}

}  // namespace qva
