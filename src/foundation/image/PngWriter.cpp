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
// One colour channel of four pixels, straightened and clamped to 255. The product is at most
// 255 × 255 × 65536 + 32768, which fits an unsigned 32-bit lane.
__attribute__((target("sse4.1"))) __m128i straightChannel(__m128i pixels, int shift, __m128i factors) {
  const __m128i byteMask = _mm_set1_epi32(255);
  const __m128i value = _mm_and_si128(_mm_srl_epi32(pixels, _mm_cvtsi32_si128(shift)), byteMask);
  const __m128i scaled = _mm_add_epi32(_mm_mullo_epi32(value, factors), _mm_set1_epi32(32768));
  return _mm_min_epu32(_mm_srli_epi32(scaled, 16), byteMask);
}

// Four pixels at a time with SSE4.1's 32-bit multiply, the same arithmetic as the scalar loop; returns
// how many pixels it did.
__attribute__((target("sse4.1"))) int unpremultiplyFours(const std::uint8_t* bgra, std::uint8_t* out,
                                                         int width, const int (&offsets)[4]) {
  const std::array<std::uint32_t, 256>& scale = straightScale();
  int x = 0;
  for (; x + 4 <= width; x += 4, bgra += 16, out += 16) {
    const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bgra));
    const __m128i factors =
        _mm_setr_epi32(static_cast<int>(scale[bgra[3]]), static_cast<int>(scale[bgra[7]]),
                       static_cast<int>(scale[bgra[11]]), static_cast<int>(scale[bgra[15]]));
    __m128i word = _mm_sll_epi32(_mm_srli_epi32(pixels, 24), _mm_cvtsi32_si128(8 * offsets[3]));
    for (int channel = 0; channel < 3; ++channel) {
      const __m128i straight = straightChannel(pixels, 8 * channel, factors);
      word = _mm_or_si128(word, _mm_sll_epi32(straight, _mm_cvtsi32_si128(8 * offsets[channel])));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), word);
  }
  return x;
}
#endif

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
  static const bool vectors = __builtin_cpu_supports("sse4.1");
  if (vectors) {
    done = unpremultiplyFours(bgra, out, width, offsets);
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
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(pixels.width) * pixels.height * 4);
  for (int y = 0; y < pixels.height; ++y) {
    unpremultiplyRow(pixels.bytes + static_cast<std::size_t>(y) * pixels.rowBytes,
                     rgba.data() + static_cast<std::size_t>(y) * pixels.width * 4, pixels.width);
  }
  const std::string partial = path + ".partial";
  std::FILE* file = std::fopen(partial.c_str(), "wb");
  if (file == nullptr) {
    return "cannot write " + path + ": " + std::strerror(errno);
  }
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(pixels.width);
  image.height = static_cast<png_uint_32>(pixels.height);
  image.format = PNG_FORMAT_RGBA;
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

}  // namespace qva
