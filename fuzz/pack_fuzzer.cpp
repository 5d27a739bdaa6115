// Any text as the JSON that pack takes.

#include "inspect/errors.h"
#include "inspect/json_form.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A file of many megabytes in two lines of JSON is no fault, but no use here either.
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (text.find("\"size\"") != std::string_view::npos && text.find("00000") != std::string_view::npos)
    return 0;
  const awbcal::Json document = awbcal::Json::parse(data, data + size, nullptr, false);
  if (document.is_discarded()) return 0;
  try {
    awbcal::pack_document(document, {.seal = true, .seal_kind = ""});
  } catch (const awbcal::InputError&) {
    // A message is an answer.
  }
  return 0;
}
