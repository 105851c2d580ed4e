// The lines of a parameter table: fields between separators, read and written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qv::Private {

/// Longest lines, with their end, in bytes.
inline constexpr uint32_t podLineBytes = 8192;
inline constexpr uint32_t podDescriptionBytes = 2048;
/// Units of a cell, terminator included.
inline constexpr size_t podCellChars = 256;

/// Cuts a line into its fields. Tab, comma, semicolon, blank, "|" and CR separate, runs of them as one; a field that
/// begins with a double quote ends at the next one, or with the line, and loses both. Gives the number of fields; those
/// from fields.size() on are counted only.
uint32_t splitPodLine(std::string_view line, std::vector<std::string_view>& fields);

/// Appends a field as it is written: empty as two double quotes, one with a separator between double quotes.
void appendPodField(std::string& out, std::string_view field);

/// Whether a field that is written reads as this text again.
bool isPodText(std::u16string_view text);

/// Copies a text to a field of `room` units and terminates it there. A text that is too long is cut, never between two
/// surrogates. NUL ends a text.
void copyPodText(char16_t* to, size_t room, std::u16string_view text);
/// The same from UTF-8.
void decodePodText(char16_t* to, size_t room, std::string_view utf8);

}  // namespace qv::Private
