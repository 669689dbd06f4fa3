#include "link/text_encoding.h"

#include <gtest/gtest.h>

#include <string>

#include "halqvantor/clsVantor.h"
#include "support/errors.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;

TEST(TextEncoding, WorkedValues) {
  // Characters count by their code page codes: '€' is 128 (129 is octal 201, 0xC9); outside the code page a
  // character counts as '?'; a code above 172 never comes back ('ä' is 228, 229 is octal 345, read as 0x159).
  const std::pair<std::string, std::string> encoded[] = {{"A", "66"}, {"AB", "6866"}, {"ab", "908E"},   {"x", "AB"},
                                                         {"", ""},    {"€", "C9"},    {"\u4e2d", "64"}, {"ä", "59"}};
  for (const auto& [text, code] : encoded) EXPECT_EQ(EncodeText(text), code) << text;
  // Lower-case digits decode alike; half a pair rounds to no character; with L = 5 the first is skipped.
  const std::pair<std::string, std::string> decoded[] = {
      {"6866", "AB"}, {"908e", "ab"}, {"", ""}, {"6", ""}, {"Z6866", "AB"}};
  for (const auto& [code, text] : decoded) EXPECT_EQ(DecodeText(code), text) << code;
}

TEST(TextEncoding, BadInputRaises) {
  // Not hexadecimal; 89 has a digit that is not octal; code 0 - 1 is no character; with L = 3 and 7 the first
  // position computed is 0, an invalid argument.
  for (const auto& [code, number] : {std::pair{"6G", 13}, {"59", 13}, {"00", 5}, {"866", 5}, {"6866866", 5}}) {
    EXPECT_EQ(RuntimeErrorNumber([&] { DecodeText(code); }), number) << code;
  }
  // Well below that length the 16-bit intermediate overflows: code + position 13816 is octal 32770.
  EXPECT_EQ(RuntimeErrorNumber([] { EncodeText(std::string(13751, 'A')); }), 6);
  EXPECT_NO_THROW(EncodeText(std::string(13750, 'A')));
  // The public members take and give Variants: a number is taken as its text, Null is refused.
  clsVantor v;
  EXPECT_EQ(v.Encode(Variant(int16_t{7})), Variant(EncodeText("7")));
  EXPECT_THROW(v.Encode(Variant::null()), RuntimeError);
}

}  // namespace
}  // namespace halqvantor
