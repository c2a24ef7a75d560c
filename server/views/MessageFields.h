#pragma once
// Fields of a stored message's JSON form (protobuf's JSON mapping) read leniently: a field that is
// missing, or holds the wrong kind of value, reads as the schema's default, so one odd row never
// stops a view. Pure functions.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace qlm::ingest::fields {

// Floats that are not finite are printed as strings in that form, and read as 0 here.
double number(const nlohmann::json& object, const char* key);
// Counts and sizes are whole numbers; as such they read better and compare exactly.
int64_t whole(const nlohmann::json& object, const char* key);
std::string text(const nlohmann::json& object, const char* key);
bool flag(const nlohmann::json& object, const char* key);
// An enum prints as its name, or as its number when the sender used one this schema has no name for.
std::string enumName(const nlohmann::json& object, const char* key, const char* defaultName);
// A map<string, string> field as an object; {} when missing.
nlohmann::json stringMap(const nlohmann::json& object, const char* key);
// The "body" of a network message: null when none was captured, else its text (valueText()).
nlohmann::json bodyText(const nlohmann::json& message);

}  // namespace qlm::ingest::fields
