#pragma once

// Secrets out of the texts we write: connection strings travel through error texts, status texts and the
// debug log, and their passwords must not.

#include <string>
#include <string_view>

namespace halqvantor::platform {

// `text` with the value of every "Password=" and "PWD=" (any case, blanks allowed around the "=") replaced
// by "***": the value runs to the next ";" or line break or the end, or, when it starts with "{", to its
// closing "}" ("}}" inside stands for one "}"). Everything else is kept byte for byte.
std::string MaskSecrets(std::string_view text);

}  // namespace halqvantor::platform
