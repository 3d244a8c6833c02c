// SSD firmware images: checksum, revision rule, stamping, world wide name, hardware tags,
// recognition, vendor request blocks. No drive.

#include "storage/ssd_image.h"

#include <string.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

// The buffer.

TEST(SsdImage, buffer_has_whole_blocks_and_every_fixed_offset) {
  EXPECT_EQ(image_buffer_size(0), 8192u);
  EXPECT_EQ(image_buffer_size(8192), 8192u);
  EXPECT_EQ(image_buffer_size(8193), 8704u);
  EXPECT_EQ(image_buffer_size(8704), 8704u);
  EXPECT_EQ(image_buffer_size(UINT32_MAX), std::uint64_t{1} << 32);  // more than 32 bits can count
}

// Checksum.

TEST(SsdImage, checksum_skips_the_last_but_one_byte) {
  Bytes image = {1, 2, 3, 99, 250};  // 256 - (1 + 2 + 3)
  EXPECT_TRUE(image_checksum_is_valid(image));
  for (const int byte : {0, 1, 98, 255}) {
    image[3] = static_cast<std::uint8_t>(byte);
    EXPECT_TRUE(image_checksum_is_valid(image)) << byte;
  }
  image[4] = 249;
  EXPECT_FALSE(image_checksum_is_valid(image));
  image[4] = 251;
  EXPECT_FALSE(image_checksum_is_valid(image));
}

TEST(SsdImage, checksum_of_a_sum_that_is_a_multiple_of_256_is_0) {
  EXPECT_EQ(image_checksum(Bytes{128, 128, 7, 7}), 0);
  EXPECT_EQ(image_checksum(Bytes(4096, 0)), 0);
  EXPECT_EQ(image_checksum(Bytes{1, 7, 7}), 255);
}

TEST(SsdImage, checksum_of_the_shortest_images) {
  EXPECT_FALSE(image_checksum_is_valid(Bytes{}));
  EXPECT_FALSE(image_checksum_is_valid(Bytes{0}));
  EXPECT_TRUE(image_checksum_is_valid(Bytes{7, 0}));  // nothing is covered
  EXPECT_FALSE(image_checksum_is_valid(Bytes{0, 1}));
  EXPECT_TRUE(image_checksum_is_valid(Bytes{1, 7, 255}));
}

// Revision.

std::string revision(const char *path) {
  char out[9];
  memset(out, 'x', sizeof out);
  revision_of_file_name(path, out);
  return std::string(out, sizeof out);
}

TEST(SsdImage, revision_is_characters_8_to_15_of_the_base_name) {
  const std::string expected("ABCDEFG2\0", 9);
  EXPECT_EQ(revision("FIRMWAREABCDEFG2.bin"), expected);
  EXPECT_EQ(revision("/mnt/usb/FIRMWAREABCDEFG2.bin"), expected);
  EXPECT_EQ(revision("a.b/FIRMWAREABCDEFG2"), expected);
  EXPECT_EQ(revision("FIRMWAREABCDEFG2 and some more.bin"), expected);
}

TEST(SsdImage, short_names_are_padded_with_nul) {
  EXPECT_EQ(revision("FIRMWAREABC"), std::string("ABC\0\0\0\0\0\0", 9));
  EXPECT_EQ(revision("FIRMWARE"), std::string(9, '\0'));
  EXPECT_EQ(revision("fw.bin"), std::string(9, '\0'));
  EXPECT_EQ(revision(""), std::string(9, '\0'));
  EXPECT_EQ(revision("FIRMWAREABCDEFG2/"), std::string(9, '\0'));
}

TEST(SsdImage, only_the_last_character_may_move_and_only_upward) {
  EXPECT_TRUE(revision_may_follow("ABCDEFG2", "ABCDEFG2"));
  EXPECT_TRUE(revision_may_follow("ABCDEFG2", "ABCDEFG1"));
  EXPECT_TRUE(revision_may_follow("ABCDEFGa", "ABCDEFG9"));
  EXPECT_FALSE(revision_may_follow("ABCDEFG2", "ABCDEFG3"));
  EXPECT_FALSE(revision_may_follow("ABCDEFH2", "ABCDEFG2"));
  EXPECT_FALSE(revision_may_follow("aBCDEFG2", "ABCDEFG2"));
}

TEST(SsdImage, the_last_character_is_compared_unsigned) {
  EXPECT_TRUE(revision_may_follow("ABCDEFG\xFF", "ABCDEFG2"));
  EXPECT_FALSE(revision_may_follow("ABCDEFG2", "ABCDEFG\x80"));
}

TEST(SsdImage, padding_follows_no_revision) {
  EXPECT_FALSE(revision_may_follow("ABC\0\0\0\0\0", "ABCDEFG1"));
  EXPECT_FALSE(revision_may_follow("\0\0\0\0\0\0\0\0", "ABC     "));
}

// Stamping.

TEST(SsdImage, stamps_four_fields_with_swapped_pairs_and_nothing_else) {
  Bytes image(8192, 0xEE);
  EXPECT_EQ(korsata_modify_fw_identify(image.data(), "SN0123456789ABCDEFGH", "5001B448A1B2C3D4",
                                       "ABCDEFG2", "QX-SSD 128GB"),
            0);
  const auto field = [&](std::size_t at, std::size_t size) {
    return std::string(image.begin() + static_cast<std::ptrdiff_t>(at),
                       image.begin() + static_cast<std::ptrdiff_t>(at + size));
  };
  EXPECT_EQ(field(4212, 20), "NS1032547698BADCFEHG");
  EXPECT_EQ(field(4238, 8), "BADCFE2G");
  EXPECT_EQ(field(4246, 40), "XQS-DS1 82BG                            ");
  EXPECT_EQ(field(4408, 8), "\x01\x50\x48\xB4\xB2\xA1\xD4\xC3");
  for (std::size_t i = 0; i < image.size(); ++i) {
    const bool stamped =
        (i >= 4212 && i < 4232) || (i >= 4238 && i < 4286) || (i >= 4408 && i < 4416);
    if (!stamped) {
      EXPECT_EQ(image[i], 0xEE) << i;
    }
  }
}

TEST(SsdImage, texts_keep_characters_of_eight_bits) {
  Bytes image(8192, 0);
  korsata_modify_fw_identify(image.data(), "\x80\x81\xFE\xFF", nullptr, "ABCDEF\xA0\xC3", "\xE4Z");
  EXPECT_EQ(memcmp(&image[4212], "\x81\x80\xFF\xFE    ", 8), 0);
  EXPECT_EQ(memcmp(&image[4238], "BADCFE\xC3\xA0", 8), 0);
  EXPECT_EQ(memcmp(&image[4246], "Z\xE4  ", 4), 0);
  char text[9];
  korsata_get_bin_fwver(image.data(), text);
  EXPECT_STREQ(text, "ABCDEF\xA0\xC3");
}

TEST(SsdImage, odd_texts_leave_a_blank_in_front_of_their_last_character) {
  Bytes image(8192, 0);
  korsata_modify_fw_identify(image.data(), "ABC", nullptr, "1", "");
  EXPECT_EQ(memcmp(&image[4212], "BA C                ", 20), 0);
  EXPECT_EQ(memcmp(&image[4238], " 1      ", 8), 0);
  EXPECT_EQ(memcmp(&image[4246], "                                        ", 40), 0);
}

TEST(SsdImage, long_texts_are_cut_to_their_fields) {
  Bytes image(8192, 0);
  const std::string text(100, 'a');
  korsata_modify_fw_identify(image.data(), text.c_str(), nullptr, text.c_str(), text.c_str());
  EXPECT_EQ(image[4211], 0);
  EXPECT_EQ(image[4231], 'a');
  EXPECT_EQ(image[4232], 0);
  EXPECT_EQ(image[4285], 'a');
  EXPECT_EQ(image[4286], 0);
}

TEST(SsdImage, null_name_leaves_the_name_alone) {
  Bytes image(8192, 0x77);
  EXPECT_EQ(korsata_modify_fw_identify(image.data(), "S", nullptr, "R", "M"), 0);
  for (std::size_t i = 4408; i < 4416; ++i)
    EXPECT_EQ(image[i], 0x77);
}

TEST(SsdImage, names_digits_may_be_lower_case) {
  Bytes image(8192, 0);
  korsata_modify_fw_identify(image.data(), "", "5001b448a1b2c3d4", "", "");
  EXPECT_EQ(memcmp(&image[4408], "\x01\x50\x48\xB4\xB2\xA1\xD4\xC3", 8), 0);
}

TEST(SsdImage, stamping_refuses_null_texts) {
  Bytes image(8192, 0x77);
  const Bytes before = image;
  void *data = image.data();
  EXPECT_EQ(korsata_modify_fw_identify(nullptr, "S", "5001B448A1B2C3D4", "R", "M"), -1);
  EXPECT_EQ(korsata_modify_fw_identify(data, nullptr, "5001B448A1B2C3D4", "R", "M"), -1);
  EXPECT_EQ(korsata_modify_fw_identify(data, "S", "5001B448A1B2C3D4", nullptr, "M"), -1);
  EXPECT_EQ(korsata_modify_fw_identify(data, "S", "5001B448A1B2C3D4", "R", nullptr), -1);
  EXPECT_EQ(image, before);
}

TEST(SsdImage, revision_of_the_template_in_reading_order) {
  Bytes image(8192, 0);
  memcpy(&image[4238], "BADCFE2G", 8);
  char text[12];
  memset(text, 'x', sizeof text);
  const char *model = korsata_get_bin_fwver(image.data(), text);
  EXPECT_EQ(std::string_view(text, sizeof text), std::string_view("ABCDEFG2\0xxx", 12));
  EXPECT_EQ(model, reinterpret_cast<char *>(&image[4246]));
}

TEST(SsdImage, world_wide_name_of_identity_data) {
  std::array<std::uint8_t, 512> identify = {};
  const std::uint8_t words[8] = {0x01, 0x50, 0x48, 0xB4, 0xB2, 0xA1, 0xD4, 0xC3};
  memcpy(&identify[216], words, 8);
  char text[20];
  memset(text, 'x', sizeof text);
  EXPECT_EQ(korstore_analyse_identify_ssdwwn(identify.data(), text), 0);
  EXPECT_EQ(std::string_view(text, sizeof text), std::string_view("5001B448A1B2C3D4\0xxx", 20));
}

// Tags.

// A tag block as drives hold it.
Bytes tag_block(const char *controller, std::uint32_t variant_1, std::uint32_t variant_2) {
  Bytes block(4096, 0);
  memcpy(&block[720], "PLSSD", 5);
  block[726] = 0x5A;
  memcpy(&block[740], "\x34\x12\x78\x56", 4);
  memcpy(&block[766], controller, strlen(controller));
  memcpy(&block[773], "HWIDPART", 8);
  for (std::size_t i = 0; i < 4; ++i) {
    block[1040 + i] = static_cast<std::uint8_t>(variant_1 >> (8 * i));
    block[1076 + i] = static_cast<std::uint8_t>(variant_2 >> (8 * i));
  }
  return block;
}

Bytes image_with(const Bytes &block) {
  Bytes image(8192, 0);
  std::copy(block.begin(), block.end(), image.begin() + 4096);
  return image;
}

TEST(SsdTag, fields_of_a_ram_copy) {
  FirmwareTag tag;
  memset(&tag, 0xFF, sizeof tag);
  EXPECT_EQ(korstore_get_fw_tag(tag_block("QT6027", 0x01020304, 9).data(), 1, &tag), 0);
  EXPECT_EQ(tag.kind, 1u);
  EXPECT_EQ(tag.variant, 0x01020304u);
  EXPECT_EQ(memcmp(tag.identifier, "HWIDPART", 8), 0);
  EXPECT_EQ(tag.hardware_byte, 0x5A);
  EXPECT_EQ(tag.hardware_word1, 0x1234);
  EXPECT_EQ(tag.hardware_word2, 0x5678);
}

// Every field with the highest bit set in the bytes that could be taken for negative numbers.
Bytes high_tag_block() {
  Bytes block = tag_block("ZEP", 0x0180FF80, 0);
  block[726] = 0xFE;
  memcpy(&block[740], "\x80\x92\xFF\x80", 4);
  memcpy(&block[773], "\x80\x9A\xA0\xC3\xE4\xF0\xFE\xFF", 8);
  return block;
}

TEST(SsdTag, fields_have_no_sign) {
  FirmwareTag tag;
  korstore_get_fw_tag(high_tag_block().data(), 1, &tag);
  EXPECT_EQ(tag.variant, 0x0180FF80u);
  EXPECT_EQ(tag.hardware_byte, 0xFE);
  EXPECT_EQ(tag.hardware_word1, 0x9280);
  EXPECT_EQ(tag.hardware_word2, 0x80FF);
}

TEST(SsdTag, drives_match_images_in_bytes_from_128_on) {
  const Bytes ram = high_tag_block();
  EXPECT_EQ(korstore_compare_binfile(image_with(ram).data(), ram.data()), 0);
}

TEST(SsdTag, a_block_of_an_image_starts_at_4096) {
  const Bytes image = image_with(tag_block("RB7730", 1, 0xA0B0C0D0));
  for (const int which : {0, 2, -1}) {
    FirmwareTag tag;
    EXPECT_EQ(korstore_get_fw_tag(image.data(), which, &tag), 0);
    EXPECT_EQ(tag.kind, 2u);
    EXPECT_EQ(tag.variant, 0xA0B0C0D0u);
  }
}

TEST(SsdTag, controllers_and_where_their_variant_stands) {
  struct {
    const char *controller;
    std::uint32_t kind;
    std::uint32_t variant;
  } const cases[] = {
      {"ZEP", 1, 7},    {"ZEPxyz", 1, 7}, {"QT6027", 1, 7}, {"QT6024", 1, 7}, {"RB7730", 2, 8},
      {"QT6025", 0, 0}, {"ZE", 0, 0},     {"zep", 0, 0},    {"", 0, 0},       {"RB773", 0, 0},
  };
  for (const auto &one : cases) {
    FirmwareTag tag;
    korstore_get_fw_tag(tag_block(one.controller, 7, 8).data(), 1, &tag);
    EXPECT_EQ(tag.kind, one.kind) << one.controller;
    EXPECT_EQ(tag.variant, one.variant) << one.controller;
  }
}

TEST(SsdTag, three_variants_of_kind_1_are_the_same_as_others) {
  const std::uint32_t pairs[][2] = {{0x43, 0x2B}, {0x11, 0x0B}, {0x44, 0x2C}, {0x2B, 0x2B},
                                    {0x0B, 0x0B}, {0x2C, 0x2C}, {0x42, 0x42}, {0x143, 0x143}};
  for (const auto &[variant, read_as] : pairs) {
    FirmwareTag tag;
    korstore_get_fw_tag(tag_block("ZEP", variant, 0).data(), 1, &tag);
    EXPECT_EQ(tag.variant, read_as);
    korstore_get_fw_tag(tag_block("RB7730", 0, variant).data(), 1, &tag);
    EXPECT_EQ(tag.variant, variant);  // of kind 2 as it stands
  }
}

TEST(SsdTag, drives_match_images_for_their_hardware) {
  const Bytes ram = tag_block("ZEP", 0x2B, 0);
  EXPECT_EQ(korstore_compare_binfile(image_with(ram).data(), ram.data()), 0);
  EXPECT_EQ(korstore_compare_binfile(image_with(tag_block("ZEP", 0x43, 0)).data(), ram.data()), 0);
  EXPECT_EQ(korstore_compare_binfile(image_with(ram).data(), tag_block("ZEP", 0x43, 0).data()), 0);
  EXPECT_EQ(korstore_compare_binfile(image_with(tag_block("ZEP", 0x44, 0)).data(), ram.data()),
            -25);
}

TEST(SsdTag, the_kind_is_not_compared) {
  const Bytes ram = tag_block("ZEP", 5, 0);
  EXPECT_EQ(korstore_compare_binfile(image_with(tag_block("RB7730", 9, 5)).data(), ram.data()), 0);
  EXPECT_EQ(korstore_compare_binfile(image_with(tag_block("RB7730", 5, 9)).data(), ram.data()),
            -25);
}

TEST(SsdTag, two_unknown_controllers_are_equal_in_their_variant) {
  const Bytes ram = tag_block("??????", 1, 2);
  EXPECT_EQ(korstore_compare_binfile(image_with(tag_block("!!!!!!", 3, 4)).data(), ram.data()), 0);
}

TEST(SsdTag, every_compared_byte_counts) {
  const Bytes ram = tag_block("ZEP", 5, 0);
  for (const std::size_t at :
       {726u, 740u, 741u, 742u, 743u, 773u, 776u, 777u, 780u, 1040u, 1043u}) {
    Bytes image = image_with(ram);
    image[4096 + at] ^= 1;
    EXPECT_EQ(korstore_compare_binfile(image.data(), ram.data()), -25) << at;
  }
  for (const std::size_t at : {720u, 725u, 727u, 739u, 744u, 772u, 781u, 1039u, 1044u, 1076u}) {
    Bytes image = image_with(ram);
    image[4096 + at] ^= 1;
    EXPECT_EQ(korstore_compare_binfile(image.data(), ram.data()), 0) << at;
  }
}

TEST(SsdTag, only_three_signatures_are_the_drives_own) {
  for (const char *signature : {"PLSSD", "TQSSD", "ZRSSD"}) {
    Bytes ram = tag_block("ZEP", 5, 0);
    memcpy(&ram[720], signature, 5);
    EXPECT_EQ(korstore_compare_binfile(image_with(ram).data(), ram.data()), 0) << signature;
  }
  for (const char *signature : {"PLSSE", "XXSSD", "plssd", "SSDPL"}) {
    Bytes ram = tag_block("ZEP", 5, 0);
    memcpy(&ram[720], signature, 5);
    EXPECT_EQ(korstore_compare_binfile(image_with(ram).data(), ram.data()), -23) << signature;
  }
}

TEST(SsdTag, the_images_signature_is_not_asked_for) {
  const Bytes ram = tag_block("ZEP", 5, 0);
  Bytes image = image_with(ram);
  memset(&image[4096 + 720], 0, 5);
  EXPECT_EQ(korstore_compare_binfile(image.data(), ram.data()), 0);
}

// Recognition.

TEST(SsdRecognition, by_the_models_first_six_characters) {
  const std::array<std::uint8_t, 512> smart = {};
  EXPECT_TRUE(ssd_is_own_drive("QX-SSD 128GB", smart.data()));
  EXPECT_TRUE(ssd_is_own_drive("QX-SSD", smart.data()));
  EXPECT_FALSE(ssd_is_own_drive("QX-SS ", smart.data()));
  EXPECT_FALSE(ssd_is_own_drive(" QX-SSD", smart.data()));
  EXPECT_FALSE(ssd_is_own_drive("qx-ssd", smart.data()));
}

TEST(SsdRecognition, by_a_mark_in_the_smart_data) {
  std::array<std::uint8_t, 512> smart = {};
  memcpy(&smart[400], "KORVEXIUM", 9);
  EXPECT_TRUE(ssd_is_own_drive("OTHER MODEL", smart.data()));
  smart = {};
  memcpy(&smart[403], "KORSMC", 6);
  EXPECT_TRUE(ssd_is_own_drive("OTHER MODEL", smart.data()));
  smart = {};
  memcpy(&smart[401], "KORVEXIUM", 9);
  EXPECT_FALSE(ssd_is_own_drive("OTHER MODEL", smart.data()));
  smart = {};
  memcpy(&smart[400], "KORSMC", 6);
  EXPECT_FALSE(ssd_is_own_drive("OTHER MODEL", smart.data()));
  smart = {};
  EXPECT_FALSE(ssd_is_own_drive("OTHER MODEL", smart.data()));
}

// Request blocks.

void expect_block(const std::array<std::uint8_t, 512> &block, const Bytes &begin) {
  for (std::size_t i = 0; i < block.size(); ++i)
    EXPECT_EQ(block[i], i < begin.size() ? begin[i] : 0) << i;
}

TEST(SsdVendorBlock, ram_read_carries_its_address_most_significant_byte_first) {
  std::array<std::uint8_t, 512> block;
  block.fill(0xAA);
  build_ram_request(0x12345678, block);
  expect_block(block, {0xFF, 0xE5, 0x86, 0x03, 0x12, 0x34, 0x56, 0x78, 0x00});
  build_ram_request(0, block);
  expect_block(block, {0xFF, 0xE5, 0x86, 0x03, 0, 0, 0, 0, 0});
}

TEST(SsdVendorBlock, memory_read_carries_its_address_one_byte_earlier) {
  std::array<std::uint8_t, 512> block;
  block.fill(0xAA);
  build_memory_request(0x12345678, block);
  expect_block(block, {0xFF, 0xE5, 0x22, 0x12, 0x34, 0x56, 0x78});
}

TEST(SsdVendorBlock, addresses_of_high_bytes_stay_as_they_are) {
  std::array<std::uint8_t, 512> block;
  build_ram_request(0xFE80FFA5, block);
  expect_block(block, {0xFF, 0xE5, 0x86, 0x03, 0xFE, 0x80, 0xFF, 0xA5, 0x00});
}

TEST(SsdVendorBlock, extent_is_a_big_endian_value_in_eights_and_a_byte) {
  struct {
    std::array<std::uint8_t, 5> begin;
    std::uint32_t value;
  } const cases[] = {
      {{0x00, 0x00, 0x00, 0x01, 0x05}, 8},          {{0x01, 0x02, 0x03, 0x04, 0x7F}, 0x08101820},
      {{0x00, 0x00, 0x00, 0x80, 0x80}, 0x400},  // a high byte leaves those above it alone
      {{0x00, 0x00, 0x80, 0x00, 0x9A}, 0x40000},    {{0x00, 0x80, 0x00, 0x00, 0xFE}, 0x4000000},
      {{0x9F, 0xFF, 0xFF, 0xFF, 0xFF}, 0xFFFFFFF8},
  };
  for (const auto &one : cases) {
    std::array<std::uint8_t, 512> answer = {};
    std::copy(one.begin.begin(), one.begin.end(), answer.begin());
    answer[5] = 0xEE;
    std::uint32_t value = 0;
    std::uint8_t byte = 0;
    decode_extent(answer, value, byte);
    EXPECT_EQ(value, one.value);
    EXPECT_EQ(byte, one.begin[4]);
  }
}

TEST(SsdVendorBlock, extent_read_carries_none) {
  std::array<std::uint8_t, 512> block;
  block.fill(0xAA);
  build_extent_request(block);
  expect_block(block, {0xFF, 0xE5, 0x23});
}

}  // namespace
