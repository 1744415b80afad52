// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Header cards: what reading keeps and how, what writing does to each card, and the
/// editing rules of the information panel with their texts.
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "FitsTestFiles.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/FitsHeaderEdit.h"

namespace astrivelle {
namespace {

using test::ScratchDir;

std::vector<const CFITSHeader*> CardsNamed(const Image& img, const std::string& key) {
    std::vector<const CFITSHeader*> out;
    for (const CFITSHeader& c : img.headerCards)
        if (c.key == key)
            out.push_back(&c);
    return out;
}

bool HasCardLine(const std::vector<std::string>& cards, const std::string& start) {
    return std::any_of(cards.begin(), cards.end(),
                       [&](const std::string& c) { return c.rfind(start, 0) == 0; });
}

TEST(FitsHeaderRead, CardsKeepTheirValueClassesAndDropOnlyStandardComments) {
    ScratchDir dir;
    const std::string path = dir.file("cards.fit");
    const std::uint16_t px[1] = {1};
    ASSERT_EQ(test::WriteMono(path, USHORT_IMG, TUSHORT, 1, 1, px,
                              [](fitsfile* f, int* s) {
                                  ffpkys(f, "OBJECT", const_cast<char*>("O'Neil field"), "target",
                                         s);
                                  ffpkyd(f, "EXPTIME", 5.5, 4, "seconds", s);
                                  ffpkyj(f, "XBINNING", 2, "", s);
                                  ffpkyl(f, "FLIPPED", 0, "a false logical", s);
                                  float cpx[2] = {1.5f, -2.0f};
                                  ffpkyc(f, "CPX", cpx, 3, "complex", s);
                                  ffpkys(f, "ESO DET CHIP NAME", const_cast<char*>("ccd1"), "h", s);
                                  ffpcom(f, "my own note", s);
                                  ffpcom(f, " FITS Definition document #100 and other FITS", s);
                                  ffphis(f, "dark subtracted", s);
                                  ffprec(f, "        a card without a keyword", s);
                              }),
              0);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    // Structural keys are in the list as they stand.
    ASSERT_GE(img.headerCards.size(), 3u);
    EXPECT_EQ(img.headerCards[0].key, "SIMPLE");
    EXPECT_EQ(img.headerCards[0].dataType, CardLogical);
    EXPECT_EQ(img.headerCards[1].key, "BITPIX");
    EXPECT_EQ(img.headerCards[1].value, "16");
    EXPECT_EQ(img.headerCards[1].dataType, CardInteger);

    struct Expect {
        const char* key;
        const char* value;
        const char* comment;
        std::uint32_t type;
    };
    for (const Expect& e : {Expect{"OBJECT", "O'Neil field", "target", CardString},
                            Expect{"EXPTIME", "5.5000E+00", "seconds", CardReal},
                            Expect{"XBINNING", "2", "", CardInteger},
                            Expect{"FLIPPED", "F", "a false logical", CardLogical},
                            Expect{"CPX", "(1.500E+00, -2.000E+00)", "complex", CardComplex},
                            Expect{"ESO DET CHIP NAME", "ccd1", "h", CardString},
                            Expect{"HISTORY", "", "dark subtracted", CardString}}) {
        auto found = CardsNamed(img, e.key);
        ASSERT_EQ(found.size(), 1u) << e.key;
        EXPECT_EQ(found[0]->value, e.value) << e.key;
        EXPECT_EQ(found[0]->comment, e.comment) << e.key;
        EXPECT_EQ(found[0]->dataType, e.type) << e.key;
    }
    // cfitsio's own two COMMENT lines and a line of the older standard text are dropped.
    auto comments = CardsNamed(img, "COMMENT");
    ASSERT_EQ(comments.size(), 1u);
    EXPECT_EQ(comments[0]->comment, "my own note");
    EXPECT_EQ(comments[0]->value, "");
    EXPECT_EQ(comments[0]->dataType, CardString);
    // The card with a blank keyword is skipped.
    EXPECT_TRUE(CardsNamed(img, "").empty());
}

TEST(FitsHeaderRead, CarriageReturnAndLineFeedAtTheCardEndAreBlanks) {
    ScratchDir dir;
    const std::string path = dir.file("crlf.fit");
    const std::uint16_t px[1] = {1};
    ASSERT_EQ(test::WriteMono(path, USHORT_IMG, TUSHORT, 1, 1, px,
                              [](fitsfile* f, int* s) {
                                  ffprec(f,
                                         "OBSERVER= 'someone '           / a comment that runs "
                                         "to the end of the card  ",
                                         s);
                              }),
              0);
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(file)), {});
        const auto at = bytes.find("OBSERVER=");
        ASSERT_NE(at, std::string::npos);
        file.seekp(static_cast<std::streamoff>(at + 78));
        file.write("\r\n", 2);
    }
    Image img;
    ASSERT_TRUE(img.ReadFITS(path)) << LastFileError();
    auto found = CardsNamed(img, "OBSERVER");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]->value, "someone");
    EXPECT_EQ(found[0]->comment, "a comment that runs to the end of the card");
}

TEST(FitsHeaderWrite, EachCardRuleHolds) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 2, 2, ColorGray, [](int, int x, int y) { return x + y; });
    auto add = [&](const char* key, std::string value, std::string comment, std::uint32_t type) {
        img.headerCards.push_back({key, std::move(value), std::move(comment), type});
    };
    add("SIMPLE", "F", "", CardLogical); // cfitsio writes its own
    add("BITPIX", "8", "", CardInteger);
    add("NAXIS1", "99", "", CardInteger);
    add("BZERO", "5", "", CardReal);
    add("EXTEND", "F", "", CardLogical);   // structural class
    add("ZBITPIX", "32", "", CardInteger); // compression class
    add("TFORM1", "1J", "", CardString);
    add("FLIPPED", "F", "always true", CardLogical);
    add("NOTE", "line one\r\nline two", "note", CardString);
    add("CAMERA", std::string("M") + static_cast<char>(252) + "ller", "", CardString);
    add("LENS", "wide", std::string("caf") + static_cast<char>(0xE9), CardString);
    add("KEY=A", "x", "", CardString);
    add("XBINNING", "3", "bin", CardInteger);
    add("BIGINT", "4294967296", "", CardInteger);
    add("FOCALLEN", "1.5D3", "mm", CardReal);
    add("DUP", "first", "", CardString);
    add("DUP", "last", "", CardString);
    add("COMMENT", "", "note one", CardString);
    add("COMMENT", "", "note two", CardString);
    add("HISTORY", "", "step one", CardString);
    add("HISTORY", "", "step two", CardString);
    add("NOVALUE", "", "only a comment", CardString);
    add("ESO DET CHIP NAME", "ccd1", "", CardString);
    const std::string path = dir.file("rules.fit");
    ASSERT_TRUE(img.WriteFITS(path, KindFITS)) << LastFileError();
    // A key without a value is legal but draws a warning.
    test::ExpectFitsVerifies(path, true);

    EXPECT_EQ(test::KeyText(path, 1, "SIMPLE"), "T");
    EXPECT_EQ(test::KeyText(path, 1, "BITPIX"), "16");
    EXPECT_EQ(test::KeyText(path, 1, "NAXIS1"), "2");
    EXPECT_EQ(test::KeyText(path, 1, "BZERO"), "32768");
    EXPECT_EQ(test::KeyText(path, 1, "EXTEND"), "T");
    EXPECT_EQ(test::KeyText(path, 1, "ZBITPIX"), "");
    EXPECT_EQ(test::KeyText(path, 1, "TFORM1"), "");
    EXPECT_EQ(test::KeyText(path, 1, "FLIPPED"), "T");
    EXPECT_EQ(test::KeyText(path, 1, "NOTE"), "'line one'");
    EXPECT_EQ(test::KeyText(path, 1, "CAMERA"), "'Muller  '");
    EXPECT_EQ(test::KeyText(path, 1, "XBINNING"), "3");
    EXPECT_EQ(test::KeyText(path, 1, "BIGINT"), "4294967296");
    EXPECT_EQ(std::stod(test::KeyText(path, 1, "FOCALLEN")), 1500.0);
    EXPECT_EQ(test::KeyText(path, 1, "DUP"), "'last    '");
    const std::vector<std::string> cards = test::Cards(path, 1);
    EXPECT_EQ(std::count_if(cards.begin(), cards.end(),
                            [](const std::string& c) { return c.rfind("DUP ", 0) == 0; }),
              1);
    EXPECT_TRUE(HasCardLine(cards, "HIERARCH KEY A = 'x       '"));
    EXPECT_TRUE(HasCardLine(cards, "LENS    = 'wide    '           / caf"));
    EXPECT_TRUE(HasCardLine(cards, "COMMENT note one"));
    EXPECT_TRUE(HasCardLine(cards, "COMMENT note two"));
    EXPECT_TRUE(HasCardLine(cards, "HISTORY step one"));
    EXPECT_TRUE(HasCardLine(cards, "HISTORY step two"));
    EXPECT_TRUE(HasCardLine(cards, "NOVALUE ="));
    EXPECT_TRUE(HasCardLine(cards, "HIERARCH ESO DET CHIP NAME = 'ccd1    '"));

    // Read back: the HIERARCH key comes whole, HISTORY is kept, no standard COMMENT appears.
    Image back;
    ASSERT_TRUE(back.ReadFITS(path)) << LastFileError();
    ASSERT_EQ(CardsNamed(back, "ESO DET CHIP NAME").size(), 1u);
    EXPECT_EQ(CardsNamed(back, "HISTORY").size(), 2u);
    EXPECT_EQ(CardsNamed(back, "COMMENT").size(), 2u);
}

TEST(FitsHeaderWrite, RepeatedRoundTripsKeepTheListStable) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 2, 2, ColorGray, [](int, int, int) { return 7; });
    img.headerCards.push_back({"OBJECT", "M13", "target", CardString});
    img.headerCards.push_back({"HISTORY", "", "calibrated", CardString});
    img.headerCards.push_back({"OBSERVER", "O'Neil", "", CardString});
    const std::string path = dir.file("rt.fit");
    ASSERT_TRUE(img.WriteFITS(path, KindFITS));
    Image first;
    ASSERT_TRUE(first.ReadFITS(path));
    ASSERT_TRUE(first.WriteFITS(path, KindFITS));
    Image second;
    ASSERT_TRUE(second.ReadFITS(path));
    ASSERT_EQ(first.headerCards.size(), second.headerCards.size());
    for (std::size_t i = 0; i < first.headerCards.size(); ++i) {
        EXPECT_EQ(first.headerCards[i].key, second.headerCards[i].key);
        EXPECT_EQ(first.headerCards[i].value, second.headerCards[i].value);
        EXPECT_EQ(first.headerCards[i].comment, second.headerCards[i].comment);
    }
    EXPECT_EQ(CardsNamed(second, "OBSERVER")[0]->value, "O'Neil");
    EXPECT_EQ(CardsNamed(second, "HISTORY").size(), 1u);
    EXPECT_TRUE(CardsNamed(second, "COMMENT").empty());
}

TEST(FitsHeaderWrite, CompressedHeaderCarriesOnlyUserCards) {
    ScratchDir dir;
    Image img;
    test::MakeImage(img, 4, 4, ColorGray, [](int, int x, int y) { return 100 * x + y; });
    img.fitsCompress = true;
    img.headerCards.push_back({"OBJECT", "M13", "", CardString});
    const std::string a = dir.file("a.fit"), b = dir.file("b.fit");
    ASSERT_TRUE(img.WriteFITS(a, KindFITS));
    Image back;
    ASSERT_TRUE(back.ReadFITS(a));
    EXPECT_EQ(CardsNamed(back, "ZCMPTYPE").size(), 1u); // shown to the user as read
    ASSERT_TRUE(back.WriteFITS(b, KindFITS));
    test::ExpectFitsVerifies(b);
    EXPECT_EQ(test::KeyText(b, 2, "OBJECT"), "'M13     '");
}

TEST(FitsHeaderCopy, ExtnameIsDroppedFromAnInheritedHeader) {
    ScratchDir dir;
    const std::string path = dir.file("ext.fits");
    const std::uint16_t px[4] = {1, 2, 3, 4};
    auto named = [](fitsfile* f, int* s) {
        ffpkys(f, "EXTNAME", const_cast<char*>("PLANE"), "", s);
        ffpkys(f, "FILTER", const_cast<char*>("Ha"), "", s);
    };
    ASSERT_EQ(test::WriteHdus(path, {{USHORT_IMG, {2, 2}, TUSHORT, px, {}},
                                     {USHORT_IMG, {2, 2}, TUSHORT, px, {}},
                                     {USHORT_IMG, {2, 2}, TUSHORT, px, named}}),
              0);
    Image img;
    ASSERT_TRUE(img.ReadFITS(path));
    ASSERT_EQ(CardsNamed(img, "EXTNAME").size(), 1u);
    HeaderList inherited;
    CopyHeaderWithoutExtName(img.headerCards, inherited);
    EXPECT_EQ(inherited.size(), img.headerCards.size() - 1);
    EXPECT_TRUE(std::none_of(inherited.begin(), inherited.end(),
                             [](const CFITSHeader& c) { return c.key == "EXTNAME"; }));
}

// ---- editing -------------------------------------------------------------------------------

HeaderList SampleCards() {
    return {{"SIMPLE", "T", "", CardLogical},        {"OBSERVER", "Ann", "first", CardString},
            {"COMMENT", "", "a remark", CardString}, {"OBSERVER", "Bob", "second", CardString},
            {"XTENSION", "IMAGE", "", CardString},   {"EXPTIME", "5", "", CardReal}};
}

TEST(FitsHeaderEdit, PropertyRowsShowSizeThenCards) {
    const auto rows = HeaderPropertyRows(640, 480, SampleCards());
    ASSERT_EQ(rows.size(), 8u);
    EXPECT_EQ(rows[0].property, "Image Width");
    EXPECT_EQ(rows[0].value, "640");
    EXPECT_EQ(rows[1].property, "Image Height");
    EXPECT_EQ(rows[1].value, "480");
    EXPECT_EQ(rows[3].value, "Ann / first");
    EXPECT_EQ(rows[4].property, "COMMENT");
    EXPECT_EQ(rows[4].value, "a remark");
    EXPECT_EQ(rows[7].value, "5");
}

TEST(FitsHeaderEdit, ChangeAndDeleteRefuseWhatTheyMust) {
    struct Case {
        int row;
        const char* change;
        const char* del;
    };
    const HeaderEntry entry{"OBSERVER", "Cy", "", CardString};
    for (const Case& c :
         {Case{-1, kSelectKeyText, kSelectKeyText}, Case{0, kCannotChangeText, kCannotDeleteText},
          Case{1, kCannotChangeText, kCannotDeleteText},
          Case{2, kCannotChangeText, kCannotDeleteText},    // SIMPLE
          Case{6, kCannotChangeText, kCannotDeleteText},    // XTENSION, class 10
          Case{8, kCannotChangeText, kCannotDeleteText}}) { // past the end
        HeaderList cards = SampleCards();
        EXPECT_EQ(ChangeHeaderCard(cards, 10, 10, c.row, entry), c.change) << c.row;
        EXPECT_EQ(DeleteHeaderCard(cards, 10, 10, c.row), c.del) << c.row;
        EXPECT_EQ(cards.size(), SampleCards().size());
    }
    EXPECT_STREQ(kSelectKeyText, "Please select a key using the mouse.");
    EXPECT_STREQ(kCannotChangeText, "Could not change this item.");
    EXPECT_STREQ(kCannotDeleteText, "Could not delete this item.");
}

TEST(FitsHeaderEdit, DuplicateKeysAreTellApartByValueAndComment) {
    HeaderList cards = SampleCards();
    EXPECT_EQ(ChangeHeaderCard(cards, 1, 1, 5, {" observr", "Cy", "third", CardString}), "");
    EXPECT_EQ(cards[1].value, "Ann");
    EXPECT_EQ(cards[3].key, "OBSERVR"); // trimmed and upper-cased
    EXPECT_EQ(cards[3].value, "Cy");
    EXPECT_EQ(cards[3].comment, "third");

    EXPECT_EQ(DeleteHeaderCard(cards, 1, 1, 3), "");
    ASSERT_EQ(cards.size(), 5u);
    EXPECT_EQ(cards[1].key, "COMMENT");
    EXPECT_EQ(cards[2].value, "Cy");
}

TEST(FitsHeaderEdit, EntriesAreCheckedAndNormalised) {
    struct Case {
        HeaderEntry entry;
        const char* text;
        const char* key;
        const char* value;
    };
    const Case cases[] = {
        {{"  ", "1", "", CardString}, "Key value should not be blank.", "", ""},
        {{"naxis1", "1", "", CardInteger},
         "Key value is a reserved key, please choose another key.",
         "",
         ""},
        {{"ZCMPTYPE", "RICE_1", "", CardString},
         "Key value is a reserved key, please choose another key.",
         "",
         ""},
        {{"FLIP", "Y", "", CardLogical}, "Please enter only a T or F for a boolean.", "", ""},
        {{"FLIP", "t", "", CardLogical}, "Please enter only a T or F for a boolean.", "", ""},
        {{"flip", "F", "", CardLogical}, "", "FLIP", "F"},
        {{"gain", "abc", "", CardInteger}, "", "GAIN", "0"},
        {{"gain", "12", "", CardInteger}, "", "GAIN", "12"},
        {{"scale", "x1.5", "", CardReal}, "", "SCALE", "0"},
        {{"scale", "1.25", "", CardReal}, "", "SCALE", "1.25"},
        // The fields hold 8, 20 and 45 characters.
        {{"LONGPROPERTY", "123456789012345678901234", std::string(50, 'c'), CardString},
         "",
         "LONGPROP",
         "12345678901234567890"},
    };
    for (const Case& c : cases) {
        HeaderList cards;
        EXPECT_EQ(AddHeaderCard(cards, c.entry), c.text) << c.entry.property;
        if (*c.text) {
            EXPECT_TRUE(cards.empty());
            continue;
        }
        ASSERT_EQ(cards.size(), 1u);
        EXPECT_EQ(cards[0].key, c.key);
        EXPECT_EQ(cards[0].value, c.value);
        EXPECT_EQ(cards[0].dataType, c.entry.dataType);
        EXPECT_LE(cards[0].comment.size(), kValueCommentMaxChars);
    }
    HeaderList cards;
    ASSERT_EQ(AddHeaderCard(cards, {"ONE", "1", "", CardString}), "");
    ASSERT_EQ(AddHeaderCard(cards, {"TWO", "2", "", CardString}), "");
    EXPECT_EQ(cards.back().key, "TWO"); // appended at the end
    EXPECT_EQ(HeaderEntry{}.dataType, CardString);
    for (const char* key : {"Image Width", "IMAGE HEIGHT", "bitpix", "BSCALE", "PCOUNT", "ZIMAGE"})
        EXPECT_TRUE(IsReservedHeaderKey(key)) << key;
    for (const char* key : {"OBJECT", "EXTNAME", "HISTORY", "BLANK", "DATE-OBS"})
        EXPECT_FALSE(IsReservedHeaderKey(key)) << key;
}

} // namespace
} // namespace astrivelle
