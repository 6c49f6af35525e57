#include "foundation/psd/PsdReader.h"

#include <unicode/unistr.h>

#include <array>
#include <new>
#include <string_view>
#include <vector>

#include "foundation/encodings/StringEncodings.h"
#include "foundation/image/Bitmap.h"
#include "foundation/psd/PsdByteReader.h"
#include "foundation/psd/PsdFormatError.h"
#include "foundation/psd/PsdPlaneDecoder.h"

namespace qva {

namespace {

using Mode = PsdDocument::ColorMode;
using Planes = std::vector<std::vector<std::uint8_t>>;

constexpr std::size_t kMaximumChannels = 56;
// Layers may reach past the canvas, but not further than the largest canvas of any document.
constexpr std::int64_t kMaximumLayerSide = 300000;

// Channel ids of layer records.
constexpr std::int16_t kTransparencyChannel = -1;

struct Header {
  std::size_t channels = 0;
  int width = 0;
  int height = 0;
  int depth = 8;
  Mode mode = Mode::RGB;

  std::size_t colorPlanes() const { return mode == Mode::RGB ? 3 : 1; }
};

struct ChannelInfo {
  std::int16_t id = 0;
  std::uint32_t length = 0;
};

struct LayerInProgress {
  PsdLayerRecord record;
  std::vector<ChannelInfo> channels;
};

struct LayerSection {
  std::vector<PsdLayerRecord> layers;
  // The first extra channel of the composite holds the merged transparency.
  bool compositeHasTransparency = false;
  bool present = false;
};

// What the refusal of a colour mode calls it.
std::string modeName(std::uint16_t mode) {
  switch (static_cast<Mode>(mode)) {
    case Mode::Bitmap:
      return "bitmap";
    case Mode::Indexed:
      return "indexed-colour";
    case Mode::CMYK:
      return "CMYK";
    case Mode::Multichannel:
      return "multichannel";
    case Mode::Duotone:
      return "duotone";
    case Mode::Lab:
      return "Lab";
    default:
      return "colour mode " + std::to_string(mode);
  }
}

Header readHeader(PsdByteReader& reader) {
  if (reader.remaining() < 4 || reader.fourCC("signature") != "8BPS") {
    throw PsdFormatError("not a Photoshop document (no 8BPS signature)");
  }
  const std::uint16_t version = reader.u16("header");
  if (version == 2) {
    throw PsdFormatError("large documents (PSB) are not supported");
  }
  if (version != 1) {
    throw PsdFormatError("unknown document version " + std::to_string(version));
  }
  reader.skip(6, "header");
  Header header;
  header.channels = reader.u16("header");
  const std::uint32_t height = reader.u32("header");
  const std::uint32_t width = reader.u32("header");
  const std::uint16_t depth = reader.u16("header");
  const std::uint16_t mode = reader.u16("header");
  if (header.channels < 1 || header.channels > kMaximumChannels) {
    throw PsdFormatError("the document claims " + std::to_string(header.channels) + " channels");
  }
  if (width < 1 || height < 1 || width > PsdReader::maximumCanvasSide ||
      height > PsdReader::maximumCanvasSide) {
    throw PsdFormatError("a canvas of " + std::to_string(width) + " × " + std::to_string(height) +
                         " pixels is outside the 1 to 30000 pixels a side a document may have");
  }
  if (std::size_t{width} * height > PsdReader::maximumPixels) {
    throw PsdFormatError("a canvas of " + std::to_string(width) + " × " + std::to_string(height) +
                         " pixels is too large");
  }
  if (depth != 8 && depth != 16) {
    throw PsdFormatError(std::to_string(depth) + "-bit documents are not supported (8 and 16 bits are)");
  }
  if (mode != static_cast<std::uint16_t>(Mode::RGB) && mode != static_cast<std::uint16_t>(Mode::Grayscale)) {
    throw PsdFormatError(modeName(mode) + " documents are not supported (RGB and greyscale are)");
  }
  header.width = static_cast<int>(width);
  header.height = static_cast<int>(height);
  header.depth = depth;
  header.mode = static_cast<Mode>(mode);
  if (header.channels < header.colorPlanes()) {
    throw PsdFormatError("an RGB document needs three channels, this one has " +
                         std::to_string(header.channels));
  }
  return header;
}

std::vector<PsdDocument::ImageResource> readImageResources(PsdByteReader section) {
  std::vector<PsdDocument::ImageResource> resources;
  while (!section.atEnd()) {
    const std::string signature = section.fourCC("image resources");
    if (signature != "8BIM" && signature != "MeSa" && signature != "AgHg" && signature != "PHUT" &&
        signature != "DCSR") {
      throw PsdFormatError("an image resource has an unknown signature");
    }
    PsdDocument::ImageResource resource;
    resource.id = section.u16("image resources");
    const std::uint8_t nameLength = section.u8("image resources");
    const auto name = section.bytes(nameLength, "image resource name");
    resource.name.assign(name.begin(), name.end());
    section.alignTo(2);
    const auto data = section.bytes(section.u32("image resources"), "image resource data");
    resource.data.assign(data.begin(), data.end());
    section.alignTo(2);
    resources.push_back(std::move(resource));
  }
  return resources;
}

std::string utf16BigEndian(const std::string& utf8) {
  const icu::UnicodeString text = icu::UnicodeString::fromUTF8(utf8);
  std::string bytes;
  for (std::int32_t i = 0; i < text.length(); ++i) {
    const char16_t unit = text.charAt(i);
    bytes.push_back(static_cast<char>(unit >> 8));
    bytes.push_back(static_cast<char>(unit & 0xFF));
  }
  return bytes;
}

// The Unicode name block: a count of UTF-16 code units, then the units; trailing zeros are dropped.
std::string readUnicodeName(PsdByteReader block) {
  const std::uint32_t count = block.u32("Unicode layer name");
  if (count > block.remaining() / 2) {
    throw PsdFormatError("a Unicode layer name is longer than its block");
  }
  const auto units = block.bytes(std::size_t{count} * 2, "Unicode layer name");
  std::string bytes(units.begin(), units.end());
  while (bytes.size() >= 2 && bytes[bytes.size() - 1] == 0 && bytes[bytes.size() - 2] == 0) {
    bytes.resize(bytes.size() - 2);
  }
  return bytes;
}

// Tagged blocks after the legacy name: only the Unicode name and the group structure matter here.
void readLayerExtras(PsdByteReader& extra, PsdLayerRecord& record, std::optional<std::string>& unicodeName) {
  while (extra.remaining() >= 12) {
    const std::string signature = extra.fourCC("layer extra data");
    if (signature != "8BIM" && signature != "8B64") {
      return;  // Padding or data of a writer this reader does not know; nothing it needs follows.
    }
    const std::string key = extra.fourCC("layer extra data");
    PsdByteReader block = extra.section(extra.u32("layer extra data"), "a layer's tagged block");
    if (key == "luni") {
      unicodeName = readUnicodeName(block);
    } else if ((key == "lsct" || key == "lsdk") && block.remaining() >= 4) {
      const std::uint32_t type = block.u32("section divider");
      record.section = type <= 3 ? static_cast<PsdSectionType>(type) : PsdSectionType::Layer;
    }
    extra.alignTo(2);
  }
}

LayerInProgress readLayerRecord(PsdByteReader& reader, std::size_t index) {
  LayerInProgress layer;
  PsdLayerRecord& record = layer.record;
  record.bounds.top = reader.i32("layer record");
  record.bounds.left = reader.i32("layer record");
  record.bounds.bottom = reader.i32("layer record");
  record.bounds.right = reader.i32("layer record");
  const std::size_t channelCount = reader.u16("layer record");
  if (channelCount > kMaximumChannels) {
    throw PsdFormatError("layer " + std::to_string(index + 1) + " claims " + std::to_string(channelCount) +
                         " channels");
  }
  for (std::size_t c = 0; c < channelCount; ++c) {
    ChannelInfo channel;
    channel.id = reader.i16("layer record");
    channel.length = reader.u32("layer record");
    layer.channels.push_back(channel);
  }
  if (reader.fourCC("layer record") != "8BIM") {
    throw PsdFormatError("layer " + std::to_string(index + 1) + " has no blend mode signature");
  }
  record.blendMode = reader.fourCC("layer record");
  record.opacity = reader.u8("layer record");
  record.clipping = reader.u8("layer record");
  record.flags = reader.u8("layer record");
  reader.skip(1, "layer record");
  PsdByteReader extra = reader.section(reader.u32("layer record"), "layer extra data");
  extra.skip(extra.u32("layer mask data"), "layer mask data");
  extra.skip(extra.u32("layer blending ranges"), "layer blending ranges");
  const std::uint8_t nameLength = extra.u8("layer name");
  const auto legacy = extra.bytes(nameLength, "layer name");
  extra.alignTo(4);
  std::optional<std::string> unicodeName;
  readLayerExtras(extra, record, unicodeName);

  const std::string legacyName =
      StringEncodings::decode(std::string_view(reinterpret_cast<const char*>(legacy.data()), legacy.size()),
                              "macintosh")
          .value_or("");
  std::optional<std::string> decoded;
  if (unicodeName) {
    decoded = StringEncodings::decode(*unicodeName, "UTF-16BE");
  }
  if (decoded) {
    record.unicodeNameBytes = *unicodeName;
    record.name = *decoded;
  } else {
    record.unicodeNameBytes = utf16BigEndian(legacyName);
    record.name = legacyName;
  }
  return layer;
}

// Premultiplied BGRA from colour planes (grey, or red, green, blue) and an optional transparency plane.
ImageRef composeImage(std::size_t width, std::size_t height, const std::array<const std::uint8_t*, 3>& color,
                      const std::uint8_t* alpha) {
  std::optional<Bitmap> bitmap =
      Bitmap::allocate(static_cast<int>(width), static_cast<int>(height), Bitmap::paddedRowBytes(width));
  if (!bitmap) {
    throw PsdFormatError("no memory for a picture of " + std::to_string(width) + " × " +
                         std::to_string(height) + " pixels");
  }
  for (std::size_t y = 0; y < height; ++y) {
    std::uint8_t* out = bitmap->row(static_cast<int>(y));
    const std::size_t start = y * width;
    for (std::size_t x = 0; x < width; ++x) {
      out[4 * x] = color[2][start + x];
      out[4 * x + 1] = color[1][start + x];
      out[4 * x + 2] = color[0][start + x];
      out[4 * x + 3] = alpha != nullptr ? alpha[start + x] : 255;
    }
  }
  bitmap->premultiply();
  return std::move(*bitmap).toImage();
}

std::array<const std::uint8_t*, 3> colorPointers(const Planes& planes, std::size_t colorPlanes) {
  if (colorPlanes == 1) {
    return {planes[0].data(), planes[0].data(), planes[0].data()};
  }
  return {planes[0].data(), planes[1].data(), planes[2].data()};
}

// Decodes the channels of one layer that make its picture and reads past the others (masks, spots).
void readLayerPixels(PsdByteReader& reader, LayerInProgress& layer, const Header& header, std::size_t index) {
  const PsdRect& bounds = layer.record.bounds;
  const bool hasPixels = !bounds.isEmpty();
  if (hasPixels && (bounds.width() > kMaximumLayerSide || bounds.height() > kMaximumLayerSide ||
                    static_cast<std::size_t>(bounds.width() * bounds.height()) > PsdReader::maximumPixels)) {
    throw PsdFormatError("layer " + std::to_string(index + 1) + " of " + std::to_string(bounds.width()) +
                         " × " + std::to_string(bounds.height()) + " pixels is too large");
  }
  const std::size_t width = hasPixels ? static_cast<std::size_t>(bounds.width()) : 0;
  const std::size_t height = hasPixels ? static_cast<std::size_t>(bounds.height()) : 0;
  const std::size_t colorPlanes = header.colorPlanes();
  Planes color(colorPlanes);
  std::vector<std::uint8_t> alpha;
  for (const ChannelInfo& channel : layer.channels) {
    const auto data = reader.bytes(channel.length, "layer channel data");
    const bool isColor = channel.id >= 0 && static_cast<std::size_t>(channel.id) < colorPlanes;
    if (!hasPixels || (!isColor && channel.id != kTransparencyChannel)) {
      continue;
    }
    PsdByteReader channelReader(data);
    const std::uint16_t compression = channelReader.u16("layer channel compression");
    const auto rest = channelReader.bytes(channelReader.remaining(), "layer channel data");
    Planes decoded = PsdPlaneDecoder::decode(rest, compression, {width, height, header.depth, 1, 1});
    (isColor ? color[static_cast<std::size_t>(channel.id)] : alpha) = std::move(decoded.front());
  }
  if (!hasPixels) {
    return;
  }
  for (const auto& plane : color) {
    if (plane.empty()) {
      throw PsdFormatError("layer " + std::to_string(index + 1) + " lacks a colour channel");
    }
  }
  layer.record.pixels =
      composeImage(width, height, colorPointers(color, colorPlanes), alpha.empty() ? nullptr : alpha.data());
}

LayerSection readLayerInfo(PsdByteReader section, const Header& header) {
  LayerSection result;
  result.present = true;
  if (section.atEnd()) {
    return result;
  }
  const std::int16_t count = section.i16("layer count");
  result.compositeHasTransparency = count < 0;
  const std::size_t layerCount =
      count < 0 ? static_cast<std::size_t>(-count) : static_cast<std::size_t>(count);
  // Records are read one by one rather than reserved by the count, which may lie.
  std::vector<LayerInProgress> layers;
  for (std::size_t i = 0; i < layerCount; ++i) {
    layers.push_back(readLayerRecord(section, i));
  }
  for (std::size_t i = 0; i < layers.size(); ++i) {
    readLayerPixels(section, layers[i], header, i);
  }
  for (LayerInProgress& layer : layers) {
    if (layer.record.section != PsdSectionType::GroupEnd) {
      result.layers.push_back(std::move(layer.record));
    }
  }
  return result;
}

// The layer and mask section: layer info, the global mask, then tagged blocks, where 16-bit documents
// keep their layers.
LayerSection readLayerAndMaskInfo(PsdByteReader section, const Header& header) {
  if (section.atEnd()) {
    return {};
  }
  LayerSection layers = readLayerInfo(section.section(section.u32("layer info"), "layer info"), header);
  if (section.remaining() >= 4) {
    section.skip(section.u32("global layer mask"), "global layer mask");
  }
  while (section.remaining() >= 12) {
    const std::string signature = section.fourCC("tagged block");
    if (signature != "8BIM" && signature != "8B64") {
      break;
    }
    const std::string key = section.fourCC("tagged block");
    PsdByteReader block = section.section(section.u32("tagged block"), "tagged block");
    if ((key == "Lr16" || key == "Layr") && layers.layers.empty()) {
      const bool transparency = layers.compositeHasTransparency;
      layers = readLayerInfo(block, header);
      layers.compositeHasTransparency = layers.compositeHasTransparency || transparency;
    }
    section.alignTo(2);
  }
  return layers;
}

ImageRef readComposite(PsdByteReader& reader, const Header& header, const LayerSection& layers) {
  if (reader.remaining() < 2) {
    throw PsdFormatError("the document ends before its composite image");
  }
  const std::uint16_t compression = reader.u16("composite image");
  const std::size_t colorPlanes = header.colorPlanes();
  // Extra channels are alpha channels of the user unless the layers say the first holds transparency;
  // a document without layers keeps its transparency there too.
  const bool transparency =
      header.channels > colorPlanes && (layers.compositeHasTransparency || !layers.present);
  const PsdPlaneDecoder::Layout layout{static_cast<std::size_t>(header.width),
                                       static_cast<std::size_t>(header.height), header.depth, header.channels,
                                       colorPlanes + (transparency ? 1 : 0)};
  const Planes planes =
      PsdPlaneDecoder::decode(reader.bytes(reader.remaining(), "composite image"), compression, layout);
  return composeImage(layout.width, layout.height, colorPointers(planes, colorPlanes),
                      transparency ? planes[colorPlanes].data() : nullptr);
}

}  // namespace

PsdReader::Result PsdReader::read(std::span<const std::uint8_t> bytes) {
  Result result;
  try {
    PsdByteReader reader(bytes);
    const Header header = readHeader(reader);
    reader.skip(reader.u32("colour mode data"), "colour mode data");
    std::vector<PsdDocument::ImageResource> resources =
        readImageResources(reader.section(reader.u32("image resources"), "image resources"));
    LayerSection layers = readLayerAndMaskInfo(
        reader.section(reader.u32("layer and mask information"), "layer and mask information"), header);
    ImageRef composite = readComposite(reader, header, layers);
    result.document.emplace(header.width, header.height, header.depth, header.mode, std::move(composite),
                            std::move(layers.layers), std::move(resources));
  } catch (const PsdFormatError& error) {
    result.error = error.what();
  } catch (const std::bad_alloc&) {
    result.error = "not enough memory to read the document";
  }
  return result;
}

}  // namespace qva
