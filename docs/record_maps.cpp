// Draws the maps of docs/records.md from records/record_layouts.h: script/record-maps runs it.
#include "records/record_layouts.h"

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace calib;

struct Place {
  size_t offset;
  size_t size;
  std::string name;
};

struct Field {
  const char* name;
  size_t offset;
  size_t size;
};

#define FIELD(Record, member) \
  { #member, offsetof(Record, member), sizeof(Record::member) }

constexpr int kWidth = 44;

void draw_border(const char* form, size_t offset) {
  std::printf(form, offset);
  std::printf("  +%s+\n", std::string(kWidth + 2, '-').c_str());
}

void draw_row(const std::string& name, size_t size) {
  const std::string bytes = std::to_string(size) + " bytes";
  std::printf("          | %-*s%s |\n", kWidth - static_cast<int>(bytes.size()), name.c_str(), bytes.c_str());
}

/// Everything that lies over [from, to), in one line.
std::string names_over(const std::vector<Place>& places, size_t from, size_t to) {
  std::string names;
  for (const Place& place : places) {
    if (place.offset >= to || place.offset + place.size <= from) continue;
    names += names.empty() ? place.name : " AND " + place.name;
  }
  return names.empty() ? "unused" : names;
}

/// A box for every range that one and the same set of places covers.
void draw_map(const char* title, const char* form, size_t size, const std::vector<Place>& places) {
  std::set<size_t> borders = {0, size};
  for (const Place& place : places) borders.insert({place.offset, place.offset + place.size});
  std::printf("%s\n\n", title);
  for (auto at = borders.begin(); std::next(at) != borders.end(); ++at) {
    draw_border(form, *at);
    draw_row(names_over(places, *at, *std::next(at)), *std::next(at) - *at);
  }
  draw_border(form, size);
  std::printf("\n");
}

void complain(const char* title) {
  std::fprintf(stderr, "the fields named here do not cover: %s\n", title);
  std::exit(1);
}

/// A line per field; a record that the fields do not cover has grown one that is missing here.
void list_fields(const char* title, size_t size, const std::vector<Field>& fields) {
  size_t end = 0;
  std::printf("%s, %zu bytes:\n\n  offset  bytes  field\n", title, size);
  for (const Field& field : fields) {
    if (field.offset != end) complain(title);
    std::printf("  %6zu  %5zu  %s\n", field.offset, field.size, field.name);
    end = field.offset + field.size;
  }
  if (end != size) complain(title);
  std::printf("\n");
}

void draw_slot() {
  draw_map("A camera's slot (at camid * slot size in the record area)", "  0x%04zX", kSlotSize,
           {{kSlotAwb, sizeof(AwbRecord), "AWB"},
            {kSlotFlash, sizeof(FlashRecord), "flash"},
            {kSlotAec, sizeof(AecRecord), "AEC"},
            {kSlotDualFlash, sizeof(DualFlashRecord), "dual flash"},
            {kSlotGyro, sizeof(GyroRecord), "gyro"},
            {kSlotALightAwb, sizeof(AwbRecord), "A-light AWB"}});
}

void draw_area() {
  draw_map("The record area", "  0x%04zX", 4 * size_t{kSlotSize},
           {{0, kSlotSize, "main camera's slot"},
            {kSlotSize, kSlotSize, "front camera's slot"},
            {2 * size_t{kSlotSize}, kSlotSize, "sub camera's slot"},
            {kAreaDualCameraFirstForm, sizeof(DualCameraFirstFormRecord), "dual camera, first form"},
            {kAreaDualCamera, sizeof(DualCameraRecord), "dual camera"}});
  std::printf("It begins at byte 0x%X of the partition with pages of 4 KiB, else at 0x%X.\n\n", kAreaBase4k,
              kAreaBase2k);
}

void draw_export() {
  draw_map("The kernel's export of one camera", "    %4zu", kExportSize,
           {{kExportAwb, sizeof(AwbRecord), "AWB"},
            {kExportLensShading, sizeof(LensShadingRecord), "lens shading"},
            {kExportFlash, sizeof(FlashRecord), "flash"},
            {kExportAec, sizeof(AecRecord), "AEC"},
            {kExportALightAwb, sizeof(AwbRecord), "A-light AWB"},
            {kExportDualFlash, sizeof(DualFlashRecord), "dual flash"},
            {kExportTagWord, sizeof(uint32_t), "tag word"},
            {kExportGyro, sizeof(GyroRecord), "gyro"}});
}

void list_small_records() {
  list_fields("AWB record", sizeof(AwbRecord),
              {FIELD(AwbRecord, valid_word), FIELD(AwbRecord, rg), FIELD(AwbRecord, bg),
               FIELD(AwbRecord, fuse), FIELD(AwbRecord, crc)});
  list_fields("Flash record", sizeof(FlashRecord),
              {FIELD(FlashRecord, valid_word), FIELD(FlashRecord, x), FIELD(FlashRecord, y),
               FIELD(FlashRecord, fuse), FIELD(FlashRecord, crc)});
  list_fields("AEC record", sizeof(AecRecord),
              {FIELD(AecRecord, valid_word), FIELD(AecRecord, gain), FIELD(AecRecord, exp_time),
               FIELD(AecRecord, luma_value), FIELD(AecRecord, fuse), FIELD(AecRecord, crc)});
  list_fields("Dual-flash record", sizeof(DualFlashRecord),
              {FIELD(DualFlashRecord, valid_word), FIELD(DualFlashRecord, x1), FIELD(DualFlashRecord, x2),
               FIELD(DualFlashRecord, x3), FIELD(DualFlashRecord, fuse), FIELD(DualFlashRecord, crc)});
  list_fields("Gyro record", sizeof(GyroRecord),
              {FIELD(GyroRecord, valid_word), FIELD(GyroRecord, fuse), FIELD(GyroRecord, crc)});
}

void list_large_records() {
  list_fields("Lens-shading record", sizeof(LensShadingRecord),
              {FIELD(LensShadingRecord, valid_word), FIELD(LensShadingRecord, fuse),
               FIELD(LensShadingRecord, gains), FIELD(LensShadingRecord, crc)});
  list_fields("Dual-camera record", sizeof(DualCameraRecord),
              {FIELD(DualCameraRecord, valid_word), FIELD(DualCameraRecord, payload),
               FIELD(DualCameraRecord, fuse), FIELD(DualCameraRecord, crc)});
  list_fields("Dual-camera record, first form", sizeof(DualCameraFirstFormRecord),
              {FIELD(DualCameraFirstFormRecord, payload), FIELD(DualCameraFirstFormRecord, crc_low)});
}

}  // namespace

int main(int argc, char** argv) {
  const std::string part = argc > 1 ? argv[1] : "";
  if (part == "area") {
    draw_area();
    draw_slot();
  } else if (part == "export") {
    draw_export();
  } else if (part == "records") {
    list_small_records();
    list_large_records();
  } else {
    return 2;
  }
  return 0;
}
