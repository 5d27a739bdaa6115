// Any text as the JSON that pack takes.

#include "inspect/errors.h"
#include "inspect/json_form.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    awbcal::pack_document(awbcal::parse_document(text), {.seal = true, .seal_kind = ""});
  } catch (const awbcal::InputError&) {
    // A message is an answer.
  }
  return 0;
}
