#pragma once

#include <ass/ass.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace qva {

// A real script of the corpus, the menu item a person would choose for it, and how libass is told the same.
struct CorpusScript {
  const char* file;
  const char* encoding;
  const char* libassCodepage;

  std::filesystem::path path() const { return std::filesystem::path(QVA_CORPUS_DIR) / "ssa" / file; }
};

// Test listings name the script rather than its bytes.
inline void PrintTo(const CorpusScript& script, std::ostream* out) {
  *out << script.file;
}

inline constexpr CorpusScript kCorpusScripts[] = {
    {"astisub-example-in-carriage-return.ssa", "Unicode (UTF-8)", nullptr},
    {"astisub-example-in.ssa", "Unicode (UTF-8)", nullptr},
    {"pysubs2-subtitle_with_attached_images_aegisub.ass", "Unicode (UTF-8)", nullptr},
    {"subsparser-HP2.ssa", "Western (Windows Latin 1)", "WINDOWS-1252"},
    {"subsparser-HellBoy_2_The_Golden_Army.ssa", "Unicode (UTF-8)", nullptr},
    {"subsparser-Lost_and_Delirious_fr.ssa", "Western (Windows Latin 1)", "WINDOWS-1252"},
    {"subsrt-sample.ass", "Unicode (UTF-8)", nullptr},
    {"subsrt-sample.ssa", "Unicode (UTF-8)", nullptr},
    // The byte-order mark overrides the Western choice.
    {"titlekit-authentic.ass", "Western (Windows Latin 1)", "UTF-16"},
    {"titlekit-simple.ssa", "Unicode (UTF-8)", nullptr},
    {"titlekit-triple_plus-expected.ssa", "Unicode (UTF-8)", nullptr},
};

// A corpus script's test name: every character of its file name that is not a letter or digit becomes "_".
inline std::string corpusTestName(const ::testing::TestParamInfo<CorpusScript>& info) {
  std::string name = info.param.file;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
  return name;
}

// A script as libass reads it on its own, without its messages; track is null where libass cannot read it.
struct LibassTrack {
  explicit LibassTrack(const CorpusScript& script) {
    ass_set_message_cb(
        library.get(), [](int, const char*, va_list, void*) {}, nullptr);
    track.reset(ass_read_file(library.get(), const_cast<char*>(script.path().c_str()),
                              const_cast<char*>(script.libassCodepage)));
  }

  // The middle of every event that is ever on screen, in milliseconds, in the script's order.
  std::vector<long long> eventMiddles() const {
    std::vector<long long> middles;
    for (int i = 0; i < track->n_events; ++i) {
      if (track->events[i].Duration > 0) {
        middles.push_back(track->events[i].Start + track->events[i].Duration / 2);
      }
    }
    return middles;
  }

  std::unique_ptr<ASS_Library, decltype(&ass_library_done)> library{ass_library_init(), ass_library_done};
  std::unique_ptr<ASS_Track, decltype(&ass_free_track)> track{nullptr, ass_free_track};
};

}  // namespace qva
