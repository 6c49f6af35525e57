#pragma once

#include <optional>

#include "foundation/text/AttributedString.h"
#include "framework/Image.h"
#include "framework/QVAPlugIn.h"
#include "patches/richtext/RepeatedMessageFilter.h"

namespace qva {

// "RTF File to Image": loads a document (plain text, RTF or HTML) when the path changes or the update
// signal rises, and draws it from the top into a transparent image of the given size.
class RTF_File_to_ImagePlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  RTF_File_to_ImagePlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  // The loaded document drawn at the ports' size; none when no image can be made.
  ImageRef imageForContext(const ExecutionContext& context) const;

  std::optional<AttributedString> document;
  // A document that fails to load is tried again at every execution and reported once.
  RepeatedMessageFilter failures_;
};

}  // namespace qva
