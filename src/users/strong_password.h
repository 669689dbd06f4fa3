#pragma once

// The strong password format: a salted Argon2id hash (libsodium), kept in the same Passwd column as the
// reversible encoding. Its text describes itself ("$argon2id$v=19$m=...,t=...,p=...$salt$hash"), so the
// stored value alone says which format a password is in; an encoded one is hexadecimal digits only.

#include <string>
#include <string_view>

namespace halqvantor::users {

inline constexpr std::string_view kStrongPasswordPrefix = "$argon2id$";

// True when `stored` is in the strong format.
bool IsStrongPassword(std::string_view stored);

// A new hash of `password` (its UTF-8 bytes, exactly) with a fresh salt and moderate limits (interactive
// log-on: about 64 MiB and a fraction of a second). Raises 7 (out of memory) when it cannot be made.
std::string HashStrongPassword(std::string_view password);

// True when `stored` is a strong-format text made from exactly `password`; false for any other password and
// for a damaged stored text.
bool VerifyStrongPassword(const std::string& stored, std::string_view password);

}  // namespace halqvantor::users
