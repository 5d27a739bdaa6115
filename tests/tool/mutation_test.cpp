// Does any damage to an input end in an answer or a message? Guards against a recogniser or decoder that
// reads past what is there; with the sanitizers it also finds reads that happen to go well.

#include <gtest/gtest.h>

#include "inspect/errors.h"
#include "inspect/json_form.h"
#include "inspect/open_phone.h"
#include "inspect/redaction.h"
#include "inspect/verdict.h"
#include "tests/support/tool_support.h"

namespace {

using support::Bytes;

/// Everything that is done with bytes; false when they were refused with a message.
bool survives(const std::string& name, const Bytes& bytes, const std::string& as = "") {
  try {
    awbcal::Phone phone = awbcal::phone_of_bytes(name, bytes, {.as = as});
    const awbcal::Json document = awbcal::show_document(phone, true);
    const awbcal::Packed packed = awbcal::pack_document(document, {});
    EXPECT_EQ(packed.files.at(0).bytes, bytes) << name;
    awbcal::verdicts_of(phone, {{calib::Camera::main, {1, 2, 3, 4}}});
    awbcal::redact(phone);
    EXPECT_EQ(phone.files[0].content.bytes.size(), bytes.size());
    return true;
  } catch (const awbcal::InputError& error) {
    EXPECT_NE(std::string(error.what()), "");
    return false;
  }
}

const char* const kKinds[] = {"awb",         "flash",      "aec",
                              "gyro",        "dual_flash", "lens_shading",
                              "dual_camera", "export",     "dual_camera_first_form",
                              "partition",   "node",       "dual_camera_payload"};

TEST(Mutation, EveryLengthOfEveryKindIsAnswered) {
  for (const char* kind : kKinds) {
    for (size_t size = 0; size < 4100; size += size < 100 ? 1 : 37) {
      EXPECT_TRUE(survives("x", support::pattern(size), kind)) << kind << size;
    }
  }
}

TEST(Mutation, EveryLengthWithoutAKindIsAnsweredOrRefused) {
  int refused = 0;
  for (size_t size = 0; size < 4200; ++size) refused += survives("x", Bytes(size, 0x63)) ? 0 : 1;
  EXPECT_EQ(refused, 4200 - 9) << "nine lengths are those of a record, an export or a node";
}

TEST(Mutation, EveryFlippedBitOfARecordIsAnswered) {
  const Bytes records[] = {tool::awb(), tool::aec(), tool::gyro(), tool::dual_flash()};
  for (const Bytes& record : records) {
    for (size_t bit = 0; bit < 8 * record.size(); ++bit) {
      Bytes flipped = record;
      flipped[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
      EXPECT_TRUE(survives("x", flipped));
    }
  }
}

TEST(Mutation, APartitionCutAnywhereIsAnswered) {
  Bytes image(0x24000, 0xFF);
  for (size_t slot = 0; slot < 3; ++slot) tool::put(image, 0x20000 + slot * 0x1000, tool::awb());
  for (size_t size = 0x1FFF0; size < image.size(); size += 997) {
    EXPECT_TRUE(survives("mfg", Bytes(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size))))
        << size;
  }
}

TEST(Mutation, DamagedDocumentsAreRefusedOrPacked) {
  const awbcal::Phone phone = awbcal::phone_of_bytes("awb_cal", tool::awb(), {});
  const std::string text = awbcal::show_document(phone, false).dump();
  int packed = 0;
  for (size_t at = 0; at < text.size(); ++at) {
    for (const char with : {'"', '9', '{', '\0', 'x'}) {
      std::string damaged = text;
      damaged[at] = with;
      try {
        awbcal::pack_document(awbcal::parse_document(damaged), {});
        ++packed;
      } catch (const awbcal::InputError&) {
      }
    }
  }
  EXPECT_GT(packed, 0);
}

TEST(Mutation, AnyTextIsPropertiesOrARedactedReport) {
  for (uint32_t salt = 1; salt < 200; ++salt) {
    Bytes bytes = support::pattern(300, salt);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>("[]: =#-_fuseFuse_ID[0x129\n"[byte % 26]);
    const std::string_view text = awbcal::text_of(bytes);
    awbcal::FuseMap map;
    const std::string redacted = awbcal::redact_text(text, map);
    EXPECT_EQ(std::count(redacted.begin(), redacted.end(), '\n'), std::count(text.begin(), text.end(), '\n'));
  }
}

}  // namespace
