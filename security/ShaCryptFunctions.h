// The SHA-crypt password hash functions: sha256Crypt ("$5$") and sha512Crypt
// ("$6$"). Each hashes a key with a salt over a number of rounds and writes
// the whole hash string ("$6$", optionally "rounds=N$", the salt, "$" and the
// encoded digest, then a NUL) into a caller's buffer. They take the salt and
// the rounds as separate arguments and never parse a setting string: reading
// hash strings is ShaCrypt's business alone, done once before the hash.
//
// Neither function allocates: the state lives on the caller's stack, in
// buffers of fixed size whatever the key and salt lengths, and every value
// derived from the key is overwritten with zero bytes before returning.
//
// The digests are Sha256 and Sha512 (Sha2.h). The rounds loop lays out
// each of a round's eight message shapes once, padded with Sha2::pad, and
// per round only copies the running digest in and calls the compression
// on the prepared blocks; the constant blocks in front of the digest are
// compressed once. Messages too long for the fixed layout (keys of more
// than about 200 bytes) are written block by block instead.
//
// Thread safety: reentrant; the only shared data are constant tables.
#pragma once

#include <cstddef>

namespace korvane::security {

// The range of rounds counts: the functions below clamp a count into it,
// ShaCrypt refuses one outside it.
inline constexpr std::size_t shaCryptLeastRounds = 1000;
inline constexpr std::size_t shaCryptMostRounds = 999999999;

// key, keyLength: the password bytes, any bytes (NUL included), not
//   NUL-terminated; key may be null when keyLength is 0.
// salt, saltLength: the salt bytes, used in full (not cut at 16 characters,
//   nor at a "$").
// rounds: clamped to 1000..999999999.
// roundsCustom: write the "rounds=" field into the hash string.
// buffer, bufferLength: where the hash string and its NUL go.
// Returns buffer, or null with errno set to ERANGE when the string and its
// NUL do not fit (the buffer then holds a truncated string).
// REQUIRES: bufferLength holds the prefix and, with roundsCustom, the rounds
// field; a shorter buffer is reported as ERANGE as well.
using CryptFunction = char*(const char* key, std::size_t keyLength, const char* salt,
                            std::size_t saltLength, std::size_t rounds, bool roundsCustom,
                            char* buffer, std::size_t bufferLength);

// The SHA-256 scheme: "$5$", 43 digest characters.
char* sha256Crypt(const char* key, std::size_t keyLength, const char* salt, std::size_t saltLength,
                  std::size_t rounds, bool roundsCustom, char* buffer,
                  std::size_t bufferLength) noexcept;

// The SHA-512 scheme: "$6$", 86 digest characters.
char* sha512Crypt(const char* key, std::size_t keyLength, const char* salt, std::size_t saltLength,
                  std::size_t rounds, bool roundsCustom, char* buffer,
                  std::size_t bufferLength) noexcept;

}  // namespace korvane::security
