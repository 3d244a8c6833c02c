#include "vboard/launcher/png.h"

#include "vboard/interposer/models/models.h"
#include "vboard/launcher/draw_lcd.h"

#include <errno.h>
#include <png.h>
#include <string.h>

#include <cstdint>

namespace vboard {
namespace {

constexpr int kScale = 4;
constexpr int kBorder = 16;
constexpr int kWidth = kLcdColumns * kScale + 2 * kBorder;
constexpr int kHeight = kLcdRows * kScale + 2 * kBorder;

struct Colour {
  std::uint8_t red, green, blue;
};

constexpr Colour kLitGlass = {0xB8, 0xD4, 0x3A};
constexpr Colour kDarkGlass = {0x6B, 0x75, 0x5A};
constexpr Colour kInk = {0x1E, 0x26, 0x18};

void paint(const LcdView &view, Colour (&pixels)[kHeight][kWidth]) {
  const Colour glass = view.is_lit ? kLitGlass : kDarkGlass;
  for (auto &line : pixels) {
    for (Colour &pixel : line)
      pixel = glass;
  }
  for (int y = 0; y < kLcdRows * kScale; ++y) {
    for (int x = 0; x < kLcdColumns * kScale; ++x) {
      if (lcd_is_dark(view.registers, view.frame, x / kScale, y / kScale))
        pixels[kBorder + y][kBorder + x] = kInk;
    }
  }
}

}  // namespace

int write_png(const char *board, const char *node, const char *file) {
  if (node[0] != '/')
    return -ENOTSUP;
  BoardNode display;
  const int error = load_board_node(board, board_name(node).view(), display);
  // An attribute need not be a text that fits a node file.
  if (error < 0)
    return error == -E2BIG ? -ENOTSUP : error;
  if (display.table.model != &kLcdModel)
    return -ENOTSUP;

  static Colour pixels[kHeight][kWidth];
  static_assert(sizeof pixels == std::size_t{3} * kWidth * kHeight);
  paint(lcd_view(board, display), pixels);
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  image.width = kWidth;
  image.height = kHeight;
  image.format = PNG_FORMAT_RGB;
  errno = 0;
  if (png_image_write_to_file(&image, file, 0, pixels, 0, nullptr) == 0)
    return errno != 0 ? -errno : -EIO;
  return 0;
}

}  // namespace vboard
