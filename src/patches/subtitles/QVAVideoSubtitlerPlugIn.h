#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/subtitles/VideoSubTitle.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Video Subtitler": the subtitle of a SubStation Alpha script that shows at the movie time, with
// the font name, size and colour of its style.
class QVAVideoSubtitlerPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The ICU converter name of the encoding at that position of the "String Encoding" menu, or none past
  // its end.
  static std::optional<std::string> stringEncodingForIndex(std::uint32_t index);
  // The menu position of the encoding, named by its localized name or any converter alias, or all bits
  // set when it is not offered.
  static std::uint32_t indexForStringEncoding(const std::string& encoding);

  QVAVideoSubtitlerPlugIn();
  ~QVAVideoSubtitlerPlugIn() override;

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  void pollInputPorts(ExecutionContext& context);
  void loadSubtitleFile(ExecutionContext& context);
  void showEntryAtMovieTime();

  VideoSubTitleArray m_vst_array;
};

}  // namespace qva
