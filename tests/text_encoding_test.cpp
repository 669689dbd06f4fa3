#include "users/text_encoding.h"

#include <gtest/gtest.h>

#include <string>

#include "halqvantor/clsVantor.h"
#include "support/errors.h"

namespace halqvantor {
namespace {

using testing::RuntimeErrorNumber;

TEST(TextEncoding, WorkedValues) {
  EXPECT_EQ(EncodeText("A"), "66");
  EXPECT_EQ(EncodeText("AB"), "6866");
  EXPECT_EQ(EncodeText("ab"), "908E");
  EXPECT_EQ(EncodeText("x"), "AB");
  EXPECT_EQ(EncodeText(""), "");
  EXPECT_EQ(DecodeText("6866"), "AB");
  EXPECT_EQ(DecodeText("908e"), "ab");  // lower-case digits decode alike
  EXPECT_EQ(DecodeText(""), "");
  EXPECT_EQ(DecodeText("6"), "");  // half a pair rounds to no character
}

TEST(TextEncoding, PublicMembersTakeAndGiveVariants) {
  clsVantor v;
  const Variant encoded = v.Encode(Variant("secret"));
  ASSERT_EQ(encoded.type(), VarType::String);
  EXPECT_EQ(v.Decode(encoded), Variant("secret"));
  EXPECT_EQ(v.Encode(Variant(int16_t{7})), Variant(EncodeText("7")));  // a number is taken as its text
}

TEST(TextEncoding, RoundTripHoldsUpToCodePlusPosition173) {
  // '~' is 126: 47 of them reach 126 + 47 = 173 and come back; the 48th gives the pair "00".
  const std::string ok(47, '~');
  EXPECT_EQ(DecodeText(EncodeText(ok)), ok);
  const std::string too_long(48, '~');
  const std::string encoded = EncodeText(too_long);
  EXPECT_EQ(encoded.substr(0, 2), "00");
  EXPECT_THROW(DecodeText(encoded), RuntimeError);
  // A character above 172 never survives: 'ä' is 228, 229 is octal 345, read as decimal 0x159.
  EXPECT_EQ(EncodeText("ä"), "59");
  EXPECT_THROW(DecodeText("59"), RuntimeError);
}

TEST(TextEncoding, CharactersAreTakenByTheirCodePageCodes) {
  // '€' is 128 in the code page: 129 is octal 201, 0xC9.
  EXPECT_EQ(EncodeText("€"), "C9");
  // Outside the code page a character counts as '?' (63): 64 is octal 100, 0x64.
  EXPECT_EQ(EncodeText("\u4e2d"), "64");
  EXPECT_EQ(EncodeText("\u4e2d"), EncodeText("?"));
}

TEST(TextEncoding, OddLengthsFollowTheRounding) {
  // L = 5: two pairs at positions 2 and 4; the first character is skipped.
  EXPECT_EQ(DecodeText("Z6866"), "AB");
  // L = 3 and 7: the first position computed is 0, an invalid argument.
  EXPECT_EQ(RuntimeErrorNumber([] { DecodeText("866"); }), 5);
  EXPECT_EQ(RuntimeErrorNumber([] { DecodeText("6866866"); }), 5);
}

TEST(TextEncoding, BadInputRaises) {
  EXPECT_EQ(RuntimeErrorNumber([] { DecodeText("6G"); }), 13);  // not hexadecimal
  EXPECT_EQ(RuntimeErrorNumber([] { DecodeText("59"); }), 13);  // 89 has a digit that is not octal
  EXPECT_EQ(RuntimeErrorNumber([] { DecodeText("00"); }), 5);   // code 0 - 1 is no character
  EXPECT_EQ(RuntimeErrorNumber([] { EncodeText(std::string(32768, 'a')); }), 6);
  // Well below that length the 16-bit intermediate overflows: code + position 13816 is octal 32770.
  EXPECT_EQ(RuntimeErrorNumber([] { EncodeText(std::string(13751, 'A')); }), 6);
  EXPECT_NO_THROW(EncodeText(std::string(13750, 'A')));
  clsVantor v;
  EXPECT_THROW(v.Encode(Variant::null()), RuntimeError);
}

}  // namespace
}  // namespace halqvantor
