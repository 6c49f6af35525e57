#include "cli/RtfCommand.h"

#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>

#include "cli/CommandError.h"
#include "foundation/rtf/RtfReader.h"
#include "foundation/xpl/xplFiles.h"

namespace qva {

namespace {

std::string readInput(const std::string& path) {
  if (path == "-") {
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  }
  std::string bytes;
  std::string error;
  if (!xpl_read_file(path, bytes, &error)) {
    throw CommandError(error);
  }
  return bytes;
}

std::string colorText(const Color& color) {
  char text[96];
  std::snprintf(text, sizeof text, "rgba(%g, %g, %g, %g)", color.red, color.green, color.blue, color.alpha);
  return text;
}

std::string optionalColorText(const std::optional<Color>& color, const char* absent) {
  return color ? colorText(*color) : absent;
}

const char* alignmentName(TextAlignment alignment) {
  switch (alignment) {
    case TextAlignment::Left:
      return "left";
    case TextAlignment::Right:
      return "right";
    case TextAlignment::Center:
      return "centre";
    case TextAlignment::Justified:
      return "justified";
    case TextAlignment::Natural:
      return "natural";
  }
  return "?";
}

void describeRun(const AttributedString& text, const AttributedString::Run& run) {
  const TextAttributes& a = run.attributes;
  std::string excerpt;
  for (char c : text.substring(run.location, 40).utf8()) {
    excerpt += c == '\n' ? std::string("\\n") : c == '\t' ? std::string("\\t") : std::string(1, c);
  }
  std::printf("run %zu+%zu: \"%s%s\"\n", run.location, run.length, excerpt.c_str(),
              run.length > 40 ? "..." : "");
  std::printf("  font: %s %g pt%s%s\n", a.font.family.c_str(), a.font.pointSize, a.font.bold ? " bold" : "",
              a.font.italic ? " italic" : "");
  std::printf("  colours: foreground %s, background %s\n", colorText(a.foregroundColor).c_str(),
              optionalColorText(a.backgroundColor, "none").c_str());
  std::printf("  underline: 0x%x, colour %s\n", static_cast<unsigned>(a.underlineStyle),
              optionalColorText(a.underlineColor, "foreground").c_str());
  std::printf("  strikethrough: 0x%x, colour %s\n", static_cast<unsigned>(a.strikethroughStyle),
              optionalColorText(a.strikethroughColor, "foreground").c_str());
  std::printf("  stroke: width %g%%, colour %s\n", a.strokeWidth,
              optionalColorText(a.strokeColor, "foreground").c_str());
  std::printf("  kerning %g, obliqueness %g, expansion %g, baseline offset %g, ligature %d\n", a.kerning,
              a.obliqueness, a.expansion, a.baselineOffset, a.ligature);
  if (a.shadow) {
    std::printf("  shadow: offset (%g, %g), blur radius %g, colour %s\n", a.shadow->offsetX,
                a.shadow->offsetY, a.shadow->blurRadius, colorText(a.shadow->color).c_str());
  } else {
    std::printf("  shadow: none\n");
  }
  const ParagraphStyle& p = a.paragraphStyle;
  std::printf(
      "  paragraph: %s, line spacing %g, line height multiple %g, line height %g to %g, spacing %g before %g "
      "after, indents first %g head %g tail %g, default tab %g, %zu tab stops\n",
      alignmentName(p.alignment), p.lineSpacing, p.lineHeightMultiple, p.minimumLineHeight,
      p.maximumLineHeight, p.paragraphSpacingBefore, p.paragraphSpacing, p.firstLineHeadIndent, p.headIndent,
      p.tailIndent, p.defaultTabInterval, p.tabStops.size());
}

// Reads the document; a broken one still gives the text read so far, then the command fails.
void runRtf(const std::string& path, bool describe) {
  RtfReader::Result result = RtfReader::read(readInput(path));
  if (describe) {
    for (const AttributedString::Run& run : result.text.runs()) {
      describeRun(result.text, run);
    }
  } else {
    std::string text = result.text.utf8();
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
  }
  std::fflush(stdout);
  if (result.error) {
    throw CommandError(path + ": " + result.message);
  }
}

}  // namespace

void addRtfCommand(CLI::App& app) {
  CLI::App* rtf = app.add_subcommand("rtf", "Read RTF documents");
  rtf->require_subcommand(1);
  for (bool describe : {true, false}) {
    CLI::App* command =
        describe ? rtf->add_subcommand("describe", "Print the attributes of each run of an RTF document")
                 : rtf->add_subcommand("plain", "Print the plain text of an RTF document");
    auto path = std::make_shared<std::string>();
    command->add_option("FILE", *path, "RTF document, or - for standard input")->required();
    command->callback([path, describe] { runRtf(*path, describe); });
  }
}

}  // namespace qva
