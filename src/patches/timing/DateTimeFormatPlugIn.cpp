#include "patches/timing/DateTimeFormatPlugIn.h"

#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <cmath>

#include "framework/ProcessLog.h"
#include "patches/timing/ReferenceTime.h"

namespace qva {

namespace {

constexpr const char* kFormat = "inputCustomFormat";
// "hh" is the 12-hour clock without an AM/PM marker; saved compositions expect this default.
constexpr const char* kDefaultFormat = "dd.MM.yyyy hh:mm:ss";

}  // namespace

const PatchClass& DateTimeFormatPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "DateTimeFormatPlugIn";
    c.name = "QVA Date & Time Format";
    c.description = "This patch formats a given time according to the format specified.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputTime", PortType::Number, "Time"),
        PortDescription::port(kFormat, PortType::String, "Format", Value(kDefaultFormat)),
    };
    c.outputs = {PortDescription::port("outputFormattedTime", PortType::String, "Formatted Date")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<DateTimeFormatPlugIn>(); };
    return c;
  }();
  return patchClass;
}

DateTimeFormatPlugIn::DateTimeFormatPlugIn() : QVAPlugIn(patchClass()) {
  UErrorCode status = U_ZERO_ERROR;
  auto formatter = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(kDefaultFormat),
                                                           icu::Locale::getDefault(), status);
  if (U_SUCCESS(status)) {
    formatter_ = std::move(formatter);
  } else {
    ProcessLog::write(std::string("[DateTimeFormatPlugIn init] no date formatter: ") + u_errorName(status));
  }
}

DateTimeFormatPlugIn::~DateTimeFormatPlugIn() = default;

void DateTimeFormatPlugIn::applyTimeZone(const std::string& name) {
  timeZone_ = name;
  std::unique_ptr<icu::TimeZone> zone;
  if (!name.empty()) {
    zone.reset(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(name)));
    if (*zone == icu::TimeZone::getUnknown()) {
      ProcessLog::write("[DateTimeFormatPlugIn execute:atTime:withArguments:] unknown time zone \"" + name +
                        "\", using the machine's");
      zone.reset();
    }
  }
  if (!zone) {
    zone.reset(icu::TimeZone::createDefault());
  }
  formatter_->adoptTimeZone(zone.release());
}

std::string DateTimeFormatPlugIn::formattedTime(double referenceTime) const {
  const double unixTime = unixTimeForReferenceTime(referenceTime);
  if (!std::isfinite(unixTime)) {
    return {};
  }
  icu::UnicodeString text;
  icu::FieldPosition position;
  UErrorCode status = U_ZERO_ERROR;
  formatter_->format(unixTime * 1000.0, text, position, status);
  std::string result;
  if (U_SUCCESS(status)) {
    text.toUTF8String(result);
  }
  return result;
}

bool DateTimeFormatPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  if (!formatter_) {
    setValueForOutputKey(std::string(), "outputFormattedTime");
    return true;
  }
  if (timeZone_ != context.timeZone()) {
    applyTimeZone(context.timeZone());
  }
  if (didValueForInputKeyChange(kFormat)) {
    formatter_->applyPattern(icu::UnicodeString::fromUTF8(inputString(kFormat)));
  }
  setValueForOutputKey(formattedTime(inputNumber("inputTime")), "outputFormattedTime");
  return true;
}

}  // namespace qva
