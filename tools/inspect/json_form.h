// The JSON form of an input: every byte of it, decoded where that is possible, and back.
#ifndef INSPECT_JSON_FORM_H
#define INSPECT_JSON_FORM_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "inspect/errors.h"
#include "inspect/phone.h"

namespace awbcal {

using Json = nlohmann::ordered_json;

/// The version of everything that --json prints; docs/awbcal.schema.json describes it.
inline constexpr int kJsonVersion = 1;

/// What every document begins with: which build of the tool, when, and the command; null: none was reached.
Json json_document(const char* command);
/// The document for a command that could not run.
Json error_document(const char* command, std::string_view message, int exit_code);
Json json_of(const Phone& phone);  ///< name, digest, kind and record area
Json json_of(std::optional<calib::Camera> camera);

/// One newline after it; bytes that are not UTF-8 are replaced.
std::string text_of(const Json& document);

/// The name of a field in JSON: "valid word" is "valid_word", "R/G" is "r_g".
std::string field_id(const FieldSpec& field);

/// The field's value: a number, hexadecimal digits, or a mesh's gains as kMeshRows rows of kMeshColumns numbers.
Json field_json(std::span<const uint8_t> record, const FieldSpec& field);

/// The document of `awbcal show`. With `raw`, each record has its bytes as well.
Json show_document(const Phone& phone, bool raw);

struct Packed {
  Layout kind;
  std::vector<OutputFile> files;
};

struct PackOptions {
  bool seal = false;
  std::string seal_kind;  ///< only records of this kind; empty: all
};

/// A text as JSON. Throws InputError for what is none, or nested too deep to be one of ours.
Json parse_document(std::string_view text);

/// The bytes that a document of `awbcal show` stands for. Throws InputError for what is no such document.
Packed pack_document(const Json& document, const PackOptions& options);

}  // namespace awbcal

#endif
