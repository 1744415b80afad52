// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rules of header editing, free of any window.
#include "fileio/FitsHeaderEdit.h"

#include <fitsio.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "fileio/FileLock.h"

namespace astrivelle {

namespace {

std::string Upper(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

/// The row's card, or the text to show when the row cannot be edited.
std::string FindEditableCard(const HeaderList& cards, std::int32_t width, std::int32_t height,
                             int selectedRow, const char* refusal, int* index) {
    if (selectedRow < 0)
        return kSelectKeyText;
    const std::vector<PropertyRow> rows = HeaderPropertyRows(width, height, cards);
    if (selectedRow < 2 || selectedRow >= static_cast<int>(rows.size()))
        return refusal;
    const PropertyRow& row = rows[static_cast<std::size_t>(selectedRow)];
    if (IsReservedHeaderKey(row.property))
        return refusal;
    *index = CardIndexOfRow(cards, row);
    if (*index < 0)
        return refusal;
    return {};
}

} // namespace

std::string ShownValue(const CFITSHeader& card) {
    if (card.key == "COMMENT")
        return card.comment;
    if (card.comment.empty())
        return card.value;
    return card.value + " / " + card.comment;
}

std::vector<PropertyRow> HeaderPropertyRows(std::int32_t width, std::int32_t height,
                                            const HeaderList& cards) {
    std::vector<PropertyRow> rows;
    rows.reserve(cards.size() + 2);
    rows.push_back({"Image Width", std::to_string(width)});
    rows.push_back({"Image Height", std::to_string(height)});
    for (const CFITSHeader& card : cards)
        rows.push_back({card.key, ShownValue(card)});
    return rows;
}

int CardIndexOfRow(const HeaderList& cards, const PropertyRow& row) {
    for (std::size_t i = 0; i < cards.size(); ++i)
        if (cards[i].key == row.property && ShownValue(cards[i]) == row.value)
            return static_cast<int>(i);
    return -1;
}

bool IsReservedHeaderKey(const std::string& key) {
    static constexpr std::array<std::string_view, 9> kReserved = {
        "IMAGE WIDTH", "IMAGE HEIGHT", "SIMPLE", "NAXIS", "NAXIS1",
        "NAXIS2",      "BZERO",        "BSCALE", "BITPIX"};
    const std::string upper = Upper(key);
    if (std::find(kReserved.begin(), kReserved.end(), upper) != kReserved.end())
        return true;
    std::string card = key;
    ImageFileGuard guard; // cfitsio is only entered under the file lock
    return ffgkcl(card.data()) < 21;
}

std::string MakeHeaderCard(const HeaderEntry& entry, CFITSHeader* card) {
    const std::string key = Upper(Trim(entry.property.substr(0, kPropertyMaxChars)));
    if (key.empty())
        return kBlankKeyText;
    if (IsReservedHeaderKey(key))
        return kReservedKeyText;
    std::string value = entry.value.substr(0, kValueMaxChars);
    switch (entry.dataType) {
    case CardLogical:
        value = Trim(value);
        if (value != "T" && value != "F")
            return kBooleanText;
        break;
    case CardInteger:
        if (std::strtol(value.c_str(), nullptr, 10) == 0)
            value = "0";
        break;
    case CardReal:
        if (std::strtod(value.c_str(), nullptr) == 0.0)
            value = "0";
        break;
    default:
        break;
    }
    card->key = key;
    card->value = value;
    card->comment = entry.valueComment.substr(0, kValueCommentMaxChars);
    card->dataType = entry.dataType;
    return {};
}

std::string AddHeaderCard(HeaderList& cards, const HeaderEntry& entry) {
    CFITSHeader card;
    std::string text = MakeHeaderCard(entry, &card);
    if (text.empty())
        cards.push_back(std::move(card));
    return text;
}

std::string ChangeHeaderCard(HeaderList& cards, std::int32_t width, std::int32_t height,
                             int selectedRow, const HeaderEntry& entry) {
    int index = -1;
    std::string text =
        FindEditableCard(cards, width, height, selectedRow, kCannotChangeText, &index);
    if (!text.empty())
        return text;
    CFITSHeader card;
    text = MakeHeaderCard(entry, &card);
    if (text.empty())
        cards[static_cast<std::size_t>(index)] = std::move(card);
    return text;
}

std::string DeleteHeaderCard(HeaderList& cards, std::int32_t width, std::int32_t height,
                             int selectedRow) {
    int index = -1;
    std::string text =
        FindEditableCard(cards, width, height, selectedRow, kCannotDeleteText, &index);
    if (text.empty())
        cards.erase(cards.begin() + index);
    return text;
}

} // namespace astrivelle
