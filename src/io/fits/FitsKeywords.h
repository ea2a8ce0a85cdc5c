// What the program knows about FITS header cards: 80 characters, the keyword in the first eight
// (FITS standard 4.0, chapter 4).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "io/fits/FitsImageInfo.h"

namespace project_lumen::io {

// The keyword of a card in lower case, without trailing blanks; empty for a card without one.
std::string KeywordOf(std::string_view card);

// The first card with the keyword (in lower case), or null.
const std::string* FindCard(const std::vector<std::string>& cards, std::string_view keyword);

// The number that the value field of a card holds; none for any other value.
std::optional<double> CardNumber(std::string_view card);

// Whether the card describes how its own file stores the image, and is therefore never copied:
// dimensions, scaling, extrema, checksums, and everything about tables and compressed images.
// BLANK is one of them, since results have no undefined pixels.
bool IsStructuralCard(std::string_view card);

// The source's cards that a result takes over, in their order: all but the structural ones and the
// CONTINUE cards of these. With `onePlane` a cube's header is made fit for two axes: cards of the
// world coordinates (chapter 8) that belong to the colour axis are left out, the axes behind it
// move up, and WCSAXES, which then counts one axis too many, is left out too.
std::vector<std::string> PreservedCards(const FitsImageInfo& source, bool onePlane);

}  // namespace project_lumen::io
