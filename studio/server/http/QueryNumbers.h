// Numbers in the address of a request.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "studio/images/DisplayStretch.h"
#include "studio/images/LayerTile.h"

namespace project_lumen::studio {

using Query = std::multimap<std::string, std::string>;

// A whole number within [0, 10^9] in decimal digits and nothing else; a finite number with a point
// as decimal sign and nothing else.
std::optional<int> ParseWholeNumber(std::string_view text);
std::optional<double> ParseRealNumber(std::string_view text);

// A number of the query, or `fallback` where it has none. Throws ApiError 400 for what is no number
// within [minimum, maximum].
double QueryNumber(const Query& query, const char* name, double fallback, double minimum,
                   double maximum);
int QueryWholeNumber(const Query& query, const char* name, std::optional<int> fallback);

// What the query says of the stretch; none where it is off.
std::optional<StretchSettings> QueryStretch(const Query& query);

// What the query says of how a layer looks, but for its stretch.
TileLook QueryLook(const Query& query, Layer layer);

}  // namespace project_lumen::studio
