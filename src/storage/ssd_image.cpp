// The SSD firmware image. Multi-byte fields are little-endian and stand at odd offsets: they are
// put together byte by byte.

#include "storage/ssd_image.h"

#include <string.h>

#include <algorithm>

namespace {

// Offsets in a firmware tag block.
constexpr std::size_t kTagSignature = 720;
constexpr std::size_t kSignatureSize = 5;
constexpr std::size_t kTagHardwareByte = 726;
constexpr std::size_t kTagHardwareWord1 = 740;
constexpr std::size_t kTagHardwareWord2 = 742;
constexpr std::size_t kTagController = 766;
constexpr std::size_t kTagIdentifier1 = 773;
constexpr std::size_t kTagIdentifier2 = 777;
constexpr std::size_t kIdentifierPart = 4;
constexpr std::size_t kTagVariant1 = 1040;
constexpr std::size_t kTagVariant2 = 1076;

static_assert(kTagVariant2 + 4 <= SSD_TAG_BLOCK_SIZE);

constexpr int kUnknownSignature = -23;
constexpr int kDifferentTag = -25;

constexpr const char *kSignatures[] = {"PLSSD", "TQSSD", "ZRSSD"};

// Bytes of the maker's marks in a SMART data sector.
constexpr std::size_t kMarkAt = 400;
constexpr char kMark[] = "KORVEXIUM";
constexpr std::size_t kShortMarkAt = 403;
constexpr char kShortMark[] = "KORSMC";
constexpr char kModelPrefix[] = "QX-SSD";

struct Controller {
  const char *name;
  std::uint32_t kind;
  std::size_t variant_at;
};

constexpr Controller kControllers[] = {
    {"ZEP", SSD_TAG_KIND_1, kTagVariant1},
    {"QT6027", SSD_TAG_KIND_1, kTagVariant1},
    {"QT6024", SSD_TAG_KIND_1, kTagVariant1},
    {"RB7730", SSD_TAG_KIND_2, kTagVariant2},
};

// Variants of kind 1 that are the same hardware: firmware for one of a pair suits both.
struct VariantPair {
  std::uint32_t variant;
  std::uint32_t same_as;
};

constexpr VariantPair kSameVariants[] = {{0x43, 0x2B}, {0x11, 0x0B}, {0x44, 0x2C}};

std::uint16_t load_u16(const std::uint8_t *bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

std::uint32_t load_u32(const std::uint8_t *bytes) {
  return load_u16(bytes) | std::uint32_t{load_u16(bytes + 2)} << 16;
}

// ATA texts: the two characters of each word change places, blanks fill the field.
void stamp_text(std::uint8_t *field, std::size_t size, const char *text) {
  memset(field, ' ', size);
  const std::size_t length = strnlen(text, size);
  for (std::size_t i = 0; i < length; ++i)
    field[i ^ 1] = static_cast<std::uint8_t>(text[i]);
}

// Each pair of digits is a byte, the two bytes of each word in the other order.
void stamp_wwn(std::uint8_t *field, const char *text) {
  for (std::size_t i = 0; i < kWwnTextSize / 2; ++i) {
    const std::uint8_t high = ctoi(static_cast<std::uint8_t>(text[2 * i]));
    const std::uint8_t low = ctoi(static_cast<std::uint8_t>(text[2 * i + 1]));
    field[i ^ 1] = static_cast<std::uint8_t>(high << 4 | low);
  }
}

void build_request(std::uint8_t opcode, std::span<std::uint8_t, SATA_SECTOR_SIZE> out) {
  std::ranges::fill(out, std::uint8_t{0});
  out[0] = 0xFF;
  out[1] = 0xE5;
  out[2] = opcode;
}

void store_address(std::uint8_t *bytes, std::uint32_t address) {
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<std::uint8_t>(address >> (24 - 8 * i));
}

}  // namespace

std::uint64_t image_buffer_size(std::uint64_t length) {
  const std::uint64_t blocks = (length + SATA_SECTOR_SIZE - 1) / SATA_SECTOR_SIZE;
  return std::max<std::uint64_t>(blocks * SATA_SECTOR_SIZE, SSD_IMAGE_BUFFER_MIN);
}

std::uint8_t image_checksum(std::span<const std::uint8_t> image) {
  std::uint8_t sum = 0;
  for (std::size_t i = 0; i + 2 < image.size(); ++i)
    sum = static_cast<std::uint8_t>(sum + image[i]);
  return static_cast<std::uint8_t>(-sum);
}

bool image_checksum_is_valid(std::span<const std::uint8_t> image) {
  return image.size() >= 2 && image.back() == image_checksum(image);
}

void revision_of_file_name(const char *path, char (&out)[kRevisionSize + 1]) {
  constexpr std::size_t kPrefix = 8;
  const char *slash = strrchr(path, '/');
  const char *name = slash != nullptr ? slash + 1 : path;
  memset(out, 0, sizeof out);
  if (strlen(name) > kPrefix)
    memcpy(out, name + kPrefix, strnlen(name + kPrefix, kRevisionSize));
}

bool revision_may_follow(const char *update, const char *current) {
  constexpr std::size_t kFixed = kRevisionSize - 1;
  return memcmp(update, current, kFixed) == 0 &&
         static_cast<std::uint8_t>(update[kFixed]) >= static_cast<std::uint8_t>(current[kFixed]);
}

bool ssd_is_own_drive(const char *model, const void *smart_values) {
  const auto *smart = static_cast<const std::uint8_t *>(smart_values);
  return memcmp(model, kModelPrefix, strlen(kModelPrefix)) == 0 ||
         memcmp(smart + kMarkAt, kMark, strlen(kMark)) == 0 ||
         memcmp(smart + kShortMarkAt, kShortMark, strlen(kShortMark)) == 0;
}

void build_ram_request(std::uint32_t address, std::span<std::uint8_t, SATA_SECTOR_SIZE> out) {
  build_request(0x86, out);
  out[3] = 0x03;
  store_address(&out[4], address);
}

void build_memory_request(std::uint32_t address, std::span<std::uint8_t, SATA_SECTOR_SIZE> out) {
  build_request(0x22, out);
  store_address(&out[3], address);
}

void build_extent_request(std::span<std::uint8_t, SATA_SECTOR_SIZE> out) {
  build_request(0x23, out);
}

void decode_extent(std::span<const std::uint8_t, SATA_SECTOR_SIZE> answer, std::uint32_t &out_value,
                   std::uint8_t &out_byte) {
  const std::uint32_t units = std::uint32_t{answer[0]} << 24 | std::uint32_t{answer[1]} << 16 |
                              std::uint32_t{answer[2]} << 8 | answer[3];
  out_value = units * 8;
  out_byte = answer[4];
}

int korsata_modify_fw_identify(void *image, const char *serial, const char *wwn,
                               const char *revision, const char *model) {
  if (image == nullptr || serial == nullptr || revision == nullptr || model == nullptr)
    return -1;
  std::uint8_t *const identify = static_cast<std::uint8_t *>(image) + kImageTemplate;
  stamp_text(identify + kIdentifySerial, kSerialSize, serial);
  stamp_text(identify + kIdentifyRevision, kRevisionSize, revision);
  stamp_text(identify + kIdentifyModel, kModelSize, model);
  if (wwn != nullptr)
    stamp_wwn(identify + kIdentifyWwn, wwn);
  return 0;
}

char *korsata_get_bin_fwver(void *image, char *out_revision) {
  char *const identify = static_cast<char *>(image) + kImageTemplate;
  for (std::size_t i = 0; i < kRevisionSize; ++i)
    out_revision[i] = identify[kIdentifyRevision + (i ^ 1)];
  out_revision[kRevisionSize] = '\0';
  return identify + kIdentifyModel;
}

int korstore_analyse_identify_ssdwwn(const void *identify, char *out_text) {
  const std::uint8_t *const wwn = static_cast<const std::uint8_t *>(identify) + kIdentifyWwn;
  for (std::size_t i = 0; i < kWwnTextSize / 2; ++i) {
    const std::uint8_t byte = wwn[i ^ 1];
    out_text[2 * i] = static_cast<char>(hex_to_ascii(byte >> 4));
    out_text[2 * i + 1] = static_cast<char>(hex_to_ascii(byte & 0x0F));
  }
  out_text[kWwnTextSize] = '\0';
  return 0;
}

int korstore_get_fw_tag(const void *buffer, int which, FirmwareTag *out_tag) {
  const std::uint8_t *const block =
      static_cast<const std::uint8_t *>(buffer) + (which == 1 ? 0 : kImageTagBlock);
  *out_tag = {};
  for (const Controller &controller : kControllers) {
    if (memcmp(block + kTagController, controller.name, strlen(controller.name)) == 0) {
      out_tag->kind = controller.kind;
      out_tag->variant = load_u32(block + controller.variant_at);
      break;
    }
  }
  if (out_tag->kind == SSD_TAG_KIND_1) {
    for (const VariantPair &pair : kSameVariants) {
      if (out_tag->variant == pair.variant) {
        out_tag->variant = pair.same_as;
        break;
      }
    }
  }
  memcpy(out_tag->identifier, block + kTagIdentifier1, kIdentifierPart);
  memcpy(out_tag->identifier + kIdentifierPart, block + kTagIdentifier2, kIdentifierPart);
  out_tag->hardware_byte = block[kTagHardwareByte];
  out_tag->hardware_word1 = load_u16(block + kTagHardwareWord1);
  out_tag->hardware_word2 = load_u16(block + kTagHardwareWord2);
  return 0;
}

int korstore_compare_binfile(const void *image, const void *ram) {
  const std::uint8_t *const signature = static_cast<const std::uint8_t *>(ram) + kTagSignature;
  const bool known = std::ranges::any_of(kSignatures, [signature](const char *accepted) {
    return memcmp(signature, accepted, kSignatureSize) == 0;
  });
  if (!known)
    return kUnknownSignature;

  FirmwareTag drive;
  FirmwareTag update;
  korstore_get_fw_tag(ram, 1, &drive);
  korstore_get_fw_tag(image, 0, &update);
  // The kind is not compared: controllers of both kinds may carry the same hardware.
  const bool match = memcmp(drive.identifier, update.identifier, sizeof drive.identifier) == 0 &&
                     drive.hardware_byte == update.hardware_byte &&
                     drive.hardware_word1 == update.hardware_word1 &&
                     drive.hardware_word2 == update.hardware_word2 &&
                     drive.variant == update.variant;
  return match ? 0 : kDifferentTag;
}
