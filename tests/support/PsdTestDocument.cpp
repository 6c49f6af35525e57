#include "support/PsdTestDocument.h"

#include <zlib.h>

#include <algorithm>
#include <stdexcept>

namespace qva::test {

namespace {

using Bytes = std::vector<std::uint8_t>;

void put16(Bytes& out, std::uint32_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}

void put32(Bytes& out, std::uint32_t value) {
  put16(out, value >> 16);
  put16(out, value & 0xFFFF);
}

void putText(Bytes& out, const std::string& text) {
  out.insert(out.end(), text.begin(), text.end());
}

void putBlock(Bytes& out, const std::string& key, const Bytes& data) {
  putText(out, "8BIM");
  putText(out, key);
  put32(out, static_cast<std::uint32_t>(data.size()));
  out.insert(out.end(), data.begin(), data.end());
  if (data.size() % 2 != 0) {
    out.push_back(0);
  }
}

void putWithLength(Bytes& out, const Bytes& data) {
  put32(out, static_cast<std::uint32_t>(data.size()));
  out.insert(out.end(), data.begin(), data.end());
}

std::vector<char16_t> utf16(const std::string& utf8) {
  std::vector<char16_t> units;
  for (std::size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<std::uint8_t>(utf8[i]);
    const int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t code = length == 1 ? lead : lead & (0xFF >> (length + 1));
    for (int k = 1; k < length; ++k) {
      code = code << 6 | (static_cast<std::uint8_t>(utf8[i + static_cast<std::size_t>(k)]) & 0x3F);
    }
    i += static_cast<std::size_t>(length);
    if (code >= 0x10000) {
      units.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
    } else {
      units.push_back(static_cast<char16_t>(code));
    }
  }
  return units;
}

struct Plane {
  std::size_t width;
  std::size_t height;
  Bytes samples;  // big-endian, depth / 8 bytes each
};

Plane makePlane(std::size_t width, std::size_t height, std::uint16_t depth,
                const std::function<std::uint8_t(int, int)>& sample) {
  Plane plane{width, height, {}};
  for (std::size_t y = 0; y < height; ++y) {
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint8_t value = sample(static_cast<int>(x), static_cast<int>(y));
      if (depth == 16) {
        put16(plane.samples, value * 257u);
      } else {
        plane.samples.push_back(value);
      }
    }
  }
  return plane;
}

// The planes encoded as one block of channel data (without the compression field).
Bytes encodePlanes(const std::vector<Plane>& planes, std::uint16_t compression, std::uint16_t depth) {
  Bytes out;
  if (compression == PsdTestDocument::Rle) {
    Bytes rows;
    for (const Plane& plane : planes) {
      const std::size_t rowBytes = plane.width * depth / 8;
      for (std::size_t y = 0; y < plane.height; ++y) {
        const Bytes row(plane.samples.begin() + static_cast<long>(y * rowBytes),
                        plane.samples.begin() + static_cast<long>((y + 1) * rowBytes));
        const Bytes packed = PsdTestDocument::packBits(row);
        put16(out, static_cast<std::uint32_t>(packed.size()));
        rows.insert(rows.end(), packed.begin(), packed.end());
      }
    }
    out.insert(out.end(), rows.begin(), rows.end());
    return out;
  }
  Bytes samples;
  for (const Plane& plane : planes) {
    Bytes data = plane.samples;
    const std::size_t rowBytes = plane.width * depth / 8;
    if (compression == PsdTestDocument::ZipPredicted) {
      const std::size_t step = depth / 8;
      for (std::size_t y = 0; y < plane.height; ++y) {
        // Differences from the right, so that each uses its left neighbour's original value.
        for (std::size_t x = rowBytes; x-- > step;) {
          if (depth == 8) {
            data[y * rowBytes + x] =
                static_cast<std::uint8_t>(data[y * rowBytes + x] - data[y * rowBytes + x - 1]);
          } else if (x % 2 == 1) {
            const std::size_t at = y * rowBytes + x - 1;
            const auto value = static_cast<std::uint16_t>((data[at] << 8 | data[at + 1]) -
                                                          (data[at - 2] << 8 | data[at - 1]));
            data[at] = static_cast<std::uint8_t>(value >> 8);
            data[at + 1] = static_cast<std::uint8_t>(value);
          }
        }
      }
    }
    samples.insert(samples.end(), data.begin(), data.end());
  }
  if (compression == PsdTestDocument::Raw) {
    return samples;
  }
  uLongf length = compressBound(static_cast<uLong>(samples.size()));
  out.resize(length);
  if (compress(out.data(), &length, samples.data(), static_cast<uLong>(samples.size())) != Z_OK) {
    throw std::runtime_error("deflate failed");
  }
  out.resize(length);
  return out;
}

}  // namespace

Bytes PsdTestDocument::packBits(const Bytes& row) {
  Bytes out;
  std::size_t i = 0;
  while (i < row.size()) {
    std::size_t run = 1;
    while (i + run < row.size() && run < 128 && row[i + run] == row[i]) {
      ++run;
    }
    if (run >= 2) {
      out.push_back(static_cast<std::uint8_t>(257 - run));
      out.push_back(row[i]);
      i += run;
      continue;
    }
    std::size_t literal = 1;
    while (i + literal < row.size() && literal < 128 &&
           (i + literal + 1 >= row.size() || row[i + literal] != row[i + literal + 1])) {
      ++literal;
    }
    out.push_back(static_cast<std::uint8_t>(literal - 1));
    out.insert(out.end(), row.begin() + static_cast<long>(i), row.begin() + static_cast<long>(i + literal));
    i += literal;
  }
  return out;
}

Bytes PsdTestDocument::bytes() const {
  const bool rgb = colorMode == 3;
  const std::size_t colorChannels = rgb ? 3 : 1;
  Bytes out;
  putText(out, "8BPS");
  put16(out, version);
  out.insert(out.end(), 6, 0);
  put16(out, static_cast<std::uint32_t>(colorChannels + 1));
  put32(out, height);
  put32(out, width);
  put16(out, depth);
  put16(out, colorMode);
  put32(out, 0);  // colour mode data
  Bytes resources;
  putText(resources, "8BIM");
  put16(resources, 1005);
  resources.insert(resources.end(), {0, 0});  // empty name, padded
  put32(resources, 2);
  resources.insert(resources.end(), {0x12, 0x34});
  putWithLength(out, resources);

  Bytes layerInfo;
  if (!layers.empty()) {
    put16(layerInfo, static_cast<std::uint32_t>(-static_cast<int>(layers.size())) & 0xFFFF);
    Bytes channelData;  // every layer's channels, after all the records
    for (const PsdTestLayer& layer : layers) {
      const std::size_t w = layer.right > layer.left ? static_cast<std::size_t>(layer.right - layer.left) : 0;
      const std::size_t h = layer.bottom > layer.top ? static_cast<std::size_t>(layer.bottom - layer.top) : 0;
      std::vector<Bytes> channels;
      const std::vector<std::size_t> sources =
          rgb ? std::vector<std::size_t>{3, 0, 1, 2} : std::vector<std::size_t>{3, 0};
      for (const std::size_t source : sources) {
        Bytes& data = channels.emplace_back();
        put16(data, compression);
        const Bytes encoded =
            encodePlanes({makePlane(w, h, depth, [&](int x, int y) { return layer.pixel(x, y)[source]; })},
                         compression, depth);
        data.insert(data.end(), encoded.begin(), encoded.end());
      }
      for (const std::int32_t edge : {layer.top, layer.left, layer.bottom, layer.right}) {
        put32(layerInfo, static_cast<std::uint32_t>(edge));
      }
      put16(layerInfo, static_cast<std::uint32_t>(channels.size()));
      for (std::size_t c = 0; c < channels.size(); ++c) {
        put16(layerInfo, c == 0 ? 0xFFFF : static_cast<std::uint32_t>(c - 1));
        put32(layerInfo, static_cast<std::uint32_t>(channels[c].size()));
        channelData.insert(channelData.end(), channels[c].begin(), channels[c].end());
      }
      putText(layerInfo, "8BIM");
      putText(layerInfo, layer.blendMode);
      layerInfo.insert(layerInfo.end(), {layer.opacity, 0, layer.flags, 0});
      Bytes extra;
      put32(extra, 0);  // mask
      put32(extra, 0);  // blending ranges
      // A Pascal string padded to a multiple of four bytes.
      std::string legacy = layer.name.substr(0, 255);
      std::replace_if(
          legacy.begin(), legacy.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }, '?');
      extra.push_back(static_cast<std::uint8_t>(legacy.size()));
      putText(extra, legacy);
      extra.insert(extra.end(), 3 - legacy.size() % 4, 0);
      if (layer.unicodeName) {
        Bytes block;
        const std::vector<char16_t> units = utf16(layer.name);
        put32(block, static_cast<std::uint32_t>(units.size()));
        for (const char16_t unit : units) {
          put16(block, unit);
        }
        putBlock(extra, "luni", block);
      }
      if (layer.section) {
        Bytes block;
        put32(block, *layer.section);
        putBlock(extra, "lsct", block);
      }
      putWithLength(layerInfo, extra);
    }
    layerInfo.insert(layerInfo.end(), channelData.begin(), channelData.end());
    if (layerInfo.size() % 2 != 0) {
      layerInfo.push_back(0);
    }
  }
  Bytes layerAndMask;
  if (layersInTaggedBlock) {
    put32(layerAndMask, 0);
    put32(layerAndMask, 0);  // global mask
    putBlock(layerAndMask, depth == 16 ? "Lr16" : "Layr", layerInfo);
  } else {
    putWithLength(layerAndMask, layerInfo);
    put32(layerAndMask, 0);  // global mask
  }
  putWithLength(out, layerAndMask);

  std::vector<Plane> planes;
  for (std::size_t source = 0; source < colorChannels + 1; ++source) {
    const std::size_t channel = source == colorChannels ? 3 : source;
    planes.push_back(makePlane(width, height, depth, [&](int x, int y) { return composite(x, y)[channel]; }));
  }
  const std::uint16_t compositeCompression = compression == Raw ? Raw : Rle;
  put16(out, compositeCompression);
  const Bytes encoded = encodePlanes(planes, compositeCompression, depth);
  out.insert(out.end(), encoded.begin(), encoded.end());
  return out;
}

}  // namespace qva::test
