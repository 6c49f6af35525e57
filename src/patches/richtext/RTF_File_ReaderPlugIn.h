#pragma once

#include <string>
#include <vector>

#include "foundation/text/AttributedString.h"
#include "framework/QVAPlugIn.h"
#include "patches/richtext/RepeatedMessageFilter.h"

namespace qva {

// "RTF File Reader": reads an RTF file at every execution and outputs its lines, split at the separator,
// as RTF document strings that keep their formatting.
class RTF_File_ReaderPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The pieces of the document between separators, each located in the text by the search rule the
  // patch has always followed: the next piece is searched from one character after the previous
  // piece's start, so a piece also found inside the previous one is taken from there. Empty pieces give
  // no line.
  static std::vector<AttributedString> lines(const AttributedString& document,
                                             const std::u16string& separator);

  RTF_File_ReaderPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  // No output, and the reason in the host log once while it lasts.
  void fail(const std::string& failure);

  RepeatedMessageFilter failures_;
};

}  // namespace qva
