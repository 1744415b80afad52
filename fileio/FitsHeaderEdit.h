// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Editing an image's header list as the image information panel does it: the property
/// rows it shows, and the checks of adding, changing and deleting a card with their texts.
/// Each operation returns the empty string on success or the fixed text to show.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/FitsHeader.h"

namespace astrivelle {

inline constexpr const char* kSelectKeyText = "Please select a key using the mouse.";
inline constexpr const char* kCannotChangeText = "Could not change this item.";
inline constexpr const char* kCannotDeleteText = "Could not delete this item.";
inline constexpr const char* kBlankKeyText = "Key value should not be blank.";
inline constexpr const char* kReservedKeyText =
    "Key value is a reserved key, please choose another key.";
inline constexpr const char* kBooleanText = "Please enter only a T or F for a boolean.";

/// Characters the entry fields hold.
inline constexpr std::size_t kPropertyMaxChars = 8;
inline constexpr std::size_t kValueMaxChars = 20;
inline constexpr std::size_t kValueCommentMaxChars = 45;

/// One row of the properties list.
struct PropertyRow {
    std::string property;
    std::string value;
};

/// "Image Width" and "Image Height" first, then one row per card: the key, and the value with
/// the comment joined by " / " (a "COMMENT" card shows its comment).
std::vector<PropertyRow> HeaderPropertyRows(std::int32_t width, std::int32_t height,
                                            const HeaderList& cards);

/// The text a card shows in the value column.
std::string ShownValue(const CFITSHeader& card);

/// Index of the card a row means: among cards of the row's key, the one whose shown value
/// matches the row; -1 when none does.
int CardIndexOfRow(const HeaderList& cards, const PropertyRow& row);

/// True for a key (compared upper-cased) the user may not add, change or delete: "IMAGE WIDTH",
/// "IMAGE HEIGHT", "SIMPLE", "NAXIS", "NAXIS1", "NAXIS2", "BZERO", "BSCALE", "BITPIX", and any
/// key cfitsio classes as structural or compression (class below 21).
bool IsReservedHeaderKey(const std::string& key);

/// What the entry record holds when the user confirms.
struct HeaderEntry {
    std::string property;
    std::string value;
    std::string valueComment;
    std::uint32_t dataType = CardString; ///< Boolean 4, Integer 1, String 3, Real 2
};

/// Checks an entry and makes the card: fields cut to what they hold, the property trimmed and
/// upper-cased; Integer and Real text that parses as 0 is stored as "0".
std::string MakeHeaderCard(const HeaderEntry& entry, CFITSHeader* card);

/// Appends a card made from the entry at the end of the list.
std::string AddHeaderCard(HeaderList& cards, const HeaderEntry& entry);

/// Replaces the card of the selected row (an index into HeaderPropertyRows, -1 for none).
std::string ChangeHeaderCard(HeaderList& cards, std::int32_t width, std::int32_t height,
                             int selectedRow, const HeaderEntry& entry);

/// Deletes the card of the selected row (an index into HeaderPropertyRows, -1 for none).
std::string DeleteHeaderCard(HeaderList& cards, std::int32_t width, std::int32_t height,
                             int selectedRow);

} // namespace astrivelle
