#pragma once

// Date tokens in the values of search rights: "$(DATE)" is today, "$(DATE+n)" and "$(DATE-n)" n days
// later or earlier, all written DD.MM.YYYY; the token is found without regard to case.

#include <string>

#include "platform/clock.h"

namespace halqvantor::users {

// Replaces the date tokens of `value`, scanning forward: after a replacement
// the scan resumes one past the old closing parenthesis, so a token directly behind a replaced token longer
// than ten characters is skipped. Raises 13 for a day count that is not a number, 5 for "$(DATE+" or
// "$(DATE-" without a closing parenthesis, 6 for a date outside the years 100 to 9999, and 5 for a value
// whose scan would never end (see the definition).
std::string ExpandDateTokens(std::string value, const platform::CivilDate& today);

}  // namespace halqvantor::users
