#include "foundation/image/PngWriter.h"

#include <png.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qva {

namespace {

// 255 / alpha in 16.16 fixed point, so that a pixel costs multiplications instead of divisions. Empty
// pixels scale by 1, like opaque ones, so that colour added where nothing was stays as it is.
const std::array<std::uint32_t, 256>& straightScale() {
  static const std::array<std::uint32_t, 256> table = [] {
    std::array<std::uint32_t, 256> made{};
    made[0] = 65536u;
    for (std::uint32_t alpha = 1; alpha < 256; ++alpha) {
      made[alpha] = (255u * 65536u + alpha / 2) / alpha;
    }
    return made;
  }();
  return table;
}

#if defined(__x86_64__)
// One colour channel of eight pixels, straightened, clamped to 255 and put back in its byte. The
// product is at most 255 × 255 × 65536 + 32768, which fits an unsigned 32-bit lane.
__attribute__((target("avx2"))) __m256i straightChannel(__m256i pixels, int channel, __m256i factors) {
  const __m256i byteMask = _mm256_set1_epi32(255);
  const __m128i shift = _mm_cvtsi32_si128(8 * channel);
  const __m256i value = _mm256_and_si256(_mm256_srl_epi32(pixels, shift), byteMask);
  const __m256i scaled = _mm256_add_epi32(_mm256_mullo_epi32(value, factors), _mm256_set1_epi32(32768));
  return _mm256_sll_epi32(_mm256_min_epu32(_mm256_srli_epi32(scaled, 16), byteMask), shift);
}

// Eight pixels at a time with AVX2, the same arithmetic as the scalar loop; returns how many pixels it
// did. Rendered frames are mostly runs of one alpha, so eight pixels of one alpha share a factor, and
// where that factor is one (opaque or empty pixels) their bytes only move.
__attribute__((target("avx2"))) int unpremultiplyEights(const std::uint8_t* bgra, std::uint8_t* out,
                                                        int width, const int (&offsets)[4]) {
  const std::array<std::uint32_t, 256>& scale = straightScale();
  // Byte indices within each 128-bit half, which is how the shuffle instruction counts.
  alignas(32) std::uint8_t order[32];
  for (int pixel = 0; pixel < 8; ++pixel) {
    for (int channel = 0; channel < 4; ++channel) {
      order[pixel * 4 + offsets[channel]] = static_cast<std::uint8_t>(pixel % 4 * 4 + channel);
    }
  }
  const __m256i reorder = _mm256_load_si256(reinterpret_cast<const __m256i*>(order));
  const __m256i alphaBytes = _mm256_set1_epi32(static_cast<int>(0xff000000u));
  int x = 0;
  for (; x + 8 <= width; x += 8, bgra += 32, out += 32) {
    const __m256i pixels = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bgra));
    const __m256i alpha = _mm256_and_si256(pixels, alphaBytes);
    const bool oneAlpha = _mm256_movemask_epi8(_mm256_cmpeq_epi32(
                              alpha, _mm256_set1_epi32(static_cast<int>(bgra[3]) << 24))) == -1;
    __m256i straight = pixels;
    if (!oneAlpha || scale[bgra[3]] != 65536u) {
      const __m256i factors =
          oneAlpha ? _mm256_set1_epi32(static_cast<int>(scale[bgra[3]]))
                   : _mm256_setr_epi32(static_cast<int>(scale[bgra[3]]), static_cast<int>(scale[bgra[7]]),
                                       static_cast<int>(scale[bgra[11]]), static_cast<int>(scale[bgra[15]]),
                                       static_cast<int>(scale[bgra[19]]), static_cast<int>(scale[bgra[23]]),
                                       static_cast<int>(scale[bgra[27]]), static_cast<int>(scale[bgra[31]]));
      straight =
          _mm256_or_si256(alpha, _mm256_or_si256(straightChannel(pixels, 0, factors),
                                                 _mm256_or_si256(straightChannel(pixels, 1, factors),
                                                                 straightChannel(pixels, 2, factors))));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_shuffle_epi8(straight, reorder));
  }
  return x;
}
#endif

// The pixels as straight-alpha RGBA rows without padding, as libpng's simplified interface takes them.
std::vector<std::uint8_t> straightRgba(const PixelBufferView& pixels) {
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(pixels.width) * pixels.height * 4);
  for (int y = 0; y < pixels.height; ++y) {
    PngWriter::unpremultiplyRow(pixels.bytes + static_cast<std::size_t>(y) * pixels.rowBytes,
                                rgba.data() + static_cast<std::size_t>(y) * pixels.width * 4, pixels.width);
  }
  return rgba;
}

png_image rgbaImageHeader(const PixelBufferView& pixels) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(pixels.width);
  image.height = static_cast<png_uint_32>(pixels.height);
  image.format = PNG_FORMAT_RGBA;
  return image;
}

}  // namespace

void PngWriter::unpremultiplyRow(const std::uint8_t* bgra, std::uint8_t* out, int width, ChannelOrder order) {
  // Where blue, green, red and alpha go in each output pixel.
  const int offsets[4] = {order == ChannelOrder::RGBA   ? 2
                          : order == ChannelOrder::BGRA ? 0
                                                        : 3,
                          order == ChannelOrder::ARGB ? 2 : 1,
                          order == ChannelOrder::RGBA   ? 0
                          : order == ChannelOrder::BGRA ? 2
                                                        : 1,
                          order == ChannelOrder::ARGB ? 0 : 3};
  int done = 0;
#if defined(__x86_64__)
  static const bool vectors = __builtin_cpu_supports("avx2");
  if (vectors) {
    done = unpremultiplyEights(bgra, out, width, offsets);
  }
#endif
  const std::array<std::uint32_t, 256>& scale = straightScale();
  for (int x = done; x < width; ++x) {
    const std::uint8_t* pixel = bgra + static_cast<std::size_t>(x) * 4;
    std::uint8_t* target = out + static_cast<std::size_t>(x) * 4;
    const std::uint32_t factor = scale[pixel[3]];
    for (int channel = 0; channel < 3; ++channel) {
      const std::uint32_t result = (pixel[channel] * factor + 32768u) >> 16;
      target[offsets[channel]] = static_cast<std::uint8_t>(result > 255 ? 255 : result);
    }
    target[offsets[3]] = pixel[3];
  }
}

std::string PngWriter::write(const PixelBufferView& pixels, const std::string& path) {
  if (pixels.width <= 0 || pixels.height <= 0 || pixels.bytes == nullptr) {
    return "cannot write " + path + ": the image has no pixels";
  }
  const std::vector<std::uint8_t> rgba = straightRgba(pixels);
  const std::string partial = path + ".partial";
  std::FILE* file = std::fopen(partial.c_str(), "wb");
  if (file == nullptr) {
    return "cannot write " + path + ": " + std::strerror(errno);
  }
  png_image image = rgbaImageHeader(pixels);
  const bool written = png_image_write_to_stdio(&image, file, 0, rgba.data(), 0, nullptr) != 0;
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    const std::string reason = written ? std::strerror(errno) : image.message;
    png_image_free(&image);
    unlink(partial.c_str());
    return "cannot write " + path + ": " + reason;
  }
  if (std::rename(partial.c_str(), path.c_str()) != 0) {
    const std::string reason = std::strerror(errno);
    unlink(partial.c_str());
    return "cannot write " + path + ": " + reason;
  }
  return {};
}

std::string PngWriter::encode(const PixelBufferView& pixels) {
  if (pixels.width <= 0 || pixels.height <= 0 || pixels.bytes == nullptr) {
    return {};
  }
  const std::vector<std::uint8_t> rgba = straightRgba(pixels);
  png_image image = rgbaImageHeader(pixels);
  // The first call only measures the encoded size.
  png_alloc_size_t size = 0;
  if (png_image_write_to_memory(&image, nullptr, &size, 0, rgba.data(), 0, nullptr) == 0) {
    png_image_free(&image);
    return {};
  }
  std::string encoded(size, '\0');
  const bool written =
      png_image_write_to_memory(&image, encoded.data(), &size, 0, rgba.data(), 0, nullptr) != 0;
  png_image_free(&image);
  if (!written) {
    return {};
  }
  encoded.resize(size);
  return encoded;
}

}  // namespace qva
