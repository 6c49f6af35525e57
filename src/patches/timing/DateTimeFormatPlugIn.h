#pragma once

#include <unicode/uversion.h>

#include <memory>
#include <optional>
#include <string>

#include "framework/QVAPlugIn.h"

U_NAMESPACE_BEGIN
class SimpleDateFormat;
U_NAMESPACE_END

namespace qva {

// "QVA Date & Time Format": a reference time as text, by a Unicode date pattern in the local time zone
// (the context's zone when it names one, else the machine's).
class DateTimeFormatPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  DateTimeFormatPlugIn();
  ~DateTimeFormatPlugIn() override;

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  void applyTimeZone(const std::string& name);
  std::string formattedTime(double referenceTime) const;

  // None when the date formatting data could not be loaded; the output is then empty.
  std::unique_ptr<icu::SimpleDateFormat> formatter_;
  // The context's zone name last applied; none before the first execution.
  std::optional<std::string> timeZone_;
};

}  // namespace qva
