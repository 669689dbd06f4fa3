#include "users/strong_password.h"

#include <sodium.h>

#include "halqvantor/RuntimeError.h"

namespace halqvantor::users {
namespace {

// libsodium picks its fastest code paths once per process; safe to call from any thread.
void EnsureSodium() {
  static const bool ready = sodium_init() >= 0;
  if (!ready) throw RuntimeError(ErrorNumber::kOutOfMemory, "Out of memory (the password library could not start)");
}

}  // namespace

bool IsStrongPassword(std::string_view stored) { return stored.starts_with(kStrongPasswordPrefix); }

std::string HashStrongPassword(std::string_view password) {
  EnsureSodium();
  char hash[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str_alg(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                            crypto_pwhash_MEMLIMIT_INTERACTIVE, crypto_pwhash_ALG_ARGON2ID13) != 0) {
    throw RuntimeError(ErrorNumber::kOutOfMemory, "Out of memory (the password hash could not be made)");
  }
  return hash;
}

bool VerifyStrongPassword(const std::string& stored, std::string_view password) {
  EnsureSodium();
  // A text that long was not written by HashStrongPassword.
  if (!IsStrongPassword(stored) || stored.size() >= crypto_pwhash_STRBYTES) return false;
  return crypto_pwhash_str_verify(stored.c_str(), password.data(), password.size()) == 0;
}

}  // namespace halqvantor::users
