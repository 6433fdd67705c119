#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "security/Sha256.h"
#include "security/Sha512.h"
#include "security/ShaCryptFunctions.h"

namespace korvane::security {
namespace {

using namespace std::string_view_literals;

// The published SHA-crypt inputs (salts already cut to 16 characters), with
// rounds as passed and whether the rounds field is written.
struct Vector {
  int tag;
  std::string_view key;
  std::string_view salt;
  std::size_t rounds;
  bool roundsCustom;
  std::string_view expected;
};

constexpr Vector vectors[] = {
    {5, "Hello world!", "saltstring", 5000, false,
     "$5$saltstring$5B8vYYiY.CVt1RlTTf8KbXBH3hsxY/GNooZaBBGWEc5"},
    {5, "Hello world!", "saltstringsaltst", 10000, true,
     "$5$rounds=10000$saltstringsaltst$3xv.VbSHBb41AL9AvLeujZkZRBAwqFMz2.opqey6IcA"},
    {5, "This is just a test", "toolongsaltstrin", 5000, true,
     "$5$rounds=5000$toolongsaltstrin$Un/5jzAHMgOGZ5.mWJpuVolil07guHPvOW8mGRcvxa5"},
    {5, "a very much longer text to encrypt.  This one even stretches over morethan one line.",
     "anotherlongsalts", 1400, true,
     "$5$rounds=1400$anotherlongsalts$Rx.j8H.h8HjEDGomFU8bDkXm3XIUnzyxf12oP84Bnq1"},
    {5, "we have a short salt string but not a short password", "short", 77777, true,
     "$5$rounds=77777$short$JiO1O3ZpDAxGJeaDIuqCoEFysAe1mZNJRs3pw0KQRd/"},
    {5, "a short string", "asaltof16chars..", 123456, true,
     "$5$rounds=123456$asaltof16chars..$gP3VQ/6X7UUEW3HkBn2w1/Ptq2jxPyzV/cZKmF/wJvD"},
    {5, "the minimum number is still observed", "roundstoolow", 10, true,
     "$5$rounds=1000$roundstoolow$yfvwcWrQ8l/K0DAWyuPMDNHpIVlTQebY9l/gL972bIC"},
    {6, "Hello world!", "saltstring", 5000, false,
     "$6$saltstring$svn8UoSVapNtMuq1ukKS4tPQd8iKwSMHWjl/O817G3uBnIFNjnQJuesI68u4OTLiBFdcbYEdFC"
     "oEOfaS35inz1"},
    {6, "Hello world!", "saltstringsaltst", 10000, true,
     "$6$rounds=10000$saltstringsaltst$OW1/O6BYHV6BcXZu8QVeXbDWra3Oeqh0sbHbbMCVNSnCM/UrjmM0Dp8"
     "vOuZeHBy/YTBmSK6H9qs/y3RnOaw5v."},
    {6, "This is just a test", "toolongsaltstrin", 5000, true,
     "$6$rounds=5000$toolongsaltstrin$lQ8jolhgVRVhY4b5pZKaysCLi0QBxGoNeKQzQ3glMhwllF7oGDZxUhx1y"
     "xdYcz/e1JSbq3y6JMxxl8audkUEm0"},
    {6, "a very much longer text to encrypt.  This one even stretches over morethan one line.",
     "anotherlongsalts", 1400, true,
     "$6$rounds=1400$anotherlongsalts$POfYwTEok97VWcjxIiSOjiykti.o/pQs.wPvMxQ6Fm7I6IoYN3CmLs66x"
     "9t0oSwbtEW7o7UmJEiDwGqd8p4ur1"},
    {6, "we have a short salt string but not a short password", "short", 77777, true,
     "$6$rounds=77777$short$WuQyW2YR.hBNpjjRhpYD/ifIw05xdfeEyQoMxIXbkvr0gge1a1x3yRULJ5CCaUeOxFm"
     "tlcGZelFl5CxtgfiAc0"},
    {6, "a short string", "asaltof16chars..", 123456, true,
     "$6$rounds=123456$asaltof16chars..$BtCwjqMJGx5hrJhZywWvt0RLE8uZ4oPwcelCjmw2kSYu.Ec6ycULevo"
     "BK25fs2xXgMNrCzIMVcgEJAstJeonj1"},
    {6, "the minimum number is still observed", "roundstoolow", 10, true,
     "$6$rounds=1000$roundstoolow$kUMsbe306n21p9R.FRkW3IGn.S9NPN0x50YhH1xhLsPuWGsUSklZt58jaTfF4"
     "ZEQpyUNGc0dqbpBYYBaHHrsX."},
};

CryptFunction* cryptFor(int tag) { return tag == 5 ? sha256Crypt : sha512Crypt; }

std::string callCrypt(int tag, std::string_view key, std::string_view salt, std::size_t rounds,
                      bool roundsCustom, std::size_t bufferLength = 124) {
  std::array<char, 256> buffer;
  buffer.fill('X');
  const char* result = cryptFor(tag)(key.data(), key.size(), salt.data(), salt.size(), rounds,
                                     roundsCustom, buffer.data(), bufferLength);
  return result == nullptr ? std::string("<null>") : std::string(result);
}

// A plain rendering of the scheme for comparison: it builds P and S as whole
// strings and encodes the digest from the general rule rather than from the
// tables, so that it shares nothing with the code under test but the digest.
template <typename Hash>
std::string referenceCrypt(std::string_view key, std::string_view salt, std::size_t rounds,
                           bool roundsCustom) {
  constexpr std::size_t length = Hash::digestLength;
  const auto asView = [](const typename Hash::Digest& d) {
    return std::string_view(reinterpret_cast<const char*>(d.data()), d.size());
  };
  rounds = std::max<std::size_t>(std::min<std::size_t>(rounds, 999999999), 1000);
  Hash b;
  b.update(key);
  b.update(salt);
  b.update(key);
  const typename Hash::Digest bDigest = b.finish();
  Hash a;
  a.update(key);
  a.update(salt);
  std::string repeated;
  while (repeated.size() < key.size()) repeated += asView(bDigest);
  a.update(std::string_view(repeated).substr(0, key.size()));
  for (std::size_t n = key.size(); n > 0; n >>= 1) {
    if (n & 1) {
      a.update(asView(bDigest));
    } else {
      a.update(key);
    }
  }
  typename Hash::Digest r = a.finish();
  Hash dp;
  for (std::size_t i = 0; i < key.size(); ++i) dp.update(key);
  const typename Hash::Digest dpDigest = dp.finish();
  std::string p;
  while (p.size() < key.size()) p += asView(dpDigest);
  p.resize(key.size());
  Hash ds;
  for (std::size_t i = 0; i < 16U + r[0]; ++i) ds.update(salt);
  const typename Hash::Digest dsDigest = ds.finish();
  std::string s;
  while (s.size() < salt.size()) s += asView(dsDigest);
  s.resize(salt.size());
  for (std::size_t i = 0; i < rounds; ++i) {
    std::string message;
    message += (i & 1) ? p : std::string(asView(r));
    if (i % 3 != 0) message += s;
    if (i % 7 != 0) message += p;
    message += (i & 1) ? std::string(asView(r)) : p;
    r = Hash::hash(message);
  }

  static constexpr char alphabet[] =
      "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::string text = length == 32 ? "$5$" : "$6$";
  if (roundsCustom) text += "rounds=" + std::to_string(rounds) + "$";
  text += std::string(salt.substr(0, salt.find('\0')));
  text += '$';
  const auto put = [&text](std::uint32_t w, int count) {
    for (int i = 0; i < count; ++i, w >>= 6) text += alphabet[w & 63];
  };
  const std::size_t n = length == 32 ? 10 : 21;
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t order[3] = {k, k + n, k + 2 * n};
    const std::size_t turn = length == 32 ? k % 3 : (3 - k % 3) % 3;
    if (turn == 1) order[0] = k + 2 * n, order[1] = k, order[2] = k + n;
    if (turn == 2) order[0] = k + n, order[1] = k + 2 * n, order[2] = k;
    put((std::uint32_t{r[order[0]]} << 16) | (std::uint32_t{r[order[1]]} << 8) | r[order[2]], 4);
  }
  if (length == 32) {
    put((std::uint32_t{r[31]} << 8) | r[30], 3);
  } else {
    put(r[63], 2);
  }
  return text;
}

std::string reference(int tag, std::string_view key, std::string_view salt, std::size_t rounds,
                      bool roundsCustom) {
  return tag == 5 ? referenceCrypt<Sha256>(key, salt, rounds, roundsCustom)
                  : referenceCrypt<Sha512>(key, salt, rounds, roundsCustom);
}

TEST(ShaCryptFunctionsTest, PublishedVectors) {
  for (const Vector& v : vectors) {
    EXPECT_EQ(callCrypt(v.tag, v.key, v.salt, v.rounds, v.roundsCustom), v.expected) << v.expected;
  }
}

TEST(ShaCryptFunctionsTest, ReferenceAgreesWithPublishedVectors) {
  // Guards the comparison implementation itself (cheap vectors only).
  for (const Vector& v : vectors) {
    if (v.rounds > 10000) continue;
    EXPECT_EQ(reference(v.tag, v.key, v.salt, v.rounds, v.roundsCustom), v.expected);
  }
}

// Key lengths around the digest length exercise the repeated-digest steps;
// P and S are fed in slices that must join seamlessly.
TEST(ShaCryptFunctionsTest, KeyLengthsAroundTheDigestLength) {
  for (const int tag : {5, 6}) {
    const std::size_t l = tag == 5 ? 32 : 64;
    for (const std::size_t length : {std::size_t{0}, std::size_t{1}, l - 1, l, l + 1, 2 * l,
                                     2 * l + 1, std::size_t{100}, std::size_t{300}}) {
      std::string key(length, '\0');
      for (std::size_t i = 0; i < length; ++i) key[i] = static_cast<char>(i * 7 + 1);
      EXPECT_EQ(callCrypt(tag, key, "someSalt", 1000, true),
                reference(tag, key, "someSalt", 1000, true))
          << tag << ' ' << length;
    }
  }
}

// Every key length up to where the rounds' messages stop fitting the
// prepared two-block layout and beyond, with salt lengths varying alongside.
TEST(ShaCryptFunctionsTest, KeyLengthSweep) {
  for (std::size_t length = 0; length <= 150; ++length) {
    std::string key(length, '\0');
    for (std::size_t i = 0; i < length; ++i) key[i] = static_cast<char>(255 - i);
    const std::string salt(1 + length % 16, static_cast<char>('A' + length % 26));
    for (const int tag : {5, 6}) {
      ASSERT_EQ(callCrypt(tag, key, salt, 1000, false), reference(tag, key, salt, 1000, false))
          << tag << ' ' << length;
    }
  }
}

TEST(ShaCryptFunctionsTest, KeysMayHoldNulBytes) {
  const std::string_view key = "pass\0word"sv;
  const std::string withNul = callCrypt(6, key, "salt", 1000, false);
  EXPECT_EQ(withNul, reference(6, key, "salt", 1000, false));
  EXPECT_NE(withNul, callCrypt(6, "pass", "salt", 1000, false));
}

TEST(ShaCryptFunctionsTest, SaltsAreUsedInFull) {
  // Longer than 16 characters and with a "$": neither cut nor stopped.
  const std::string_view salt = "a$longer$salt$than$sixteen";
  for (const int tag : {5, 6}) {
    const std::string hash = callCrypt(tag, "key", salt, 1000, false, 256);
    EXPECT_EQ(hash, reference(tag, "key", salt, 1000, false));
    EXPECT_EQ(hash.substr(3, salt.size() + 1), std::string(salt) + "$");
  }
  // Salt lengths around the digest length.
  for (const std::size_t length : {31U, 32U, 33U, 63U, 64U, 65U, 129U}) {
    const std::string longSalt(length, 's');
    EXPECT_EQ(callCrypt(5, "k", longSalt, 1000, false, 256),
              reference(5, "k", longSalt, 1000, false));
    EXPECT_EQ(callCrypt(6, "k", longSalt, 1000, false, 256),
              reference(6, "k", longSalt, 1000, false));
  }
}

TEST(ShaCryptFunctionsTest, TooFewRoundsAreRaisedToTheLeast) {
  for (const int tag : {5, 6}) {
    const std::string ten = callCrypt(tag, "password", "salt", 10, true);
    EXPECT_EQ(ten, callCrypt(tag, "password", "salt", 1000, true));
    EXPECT_EQ(ten.substr(0, 16), tag == 5 ? "$5$rounds=1000$s" : "$6$rounds=1000$s");
    EXPECT_EQ(callCrypt(tag, "password", "salt", 0, false),
              callCrypt(tag, "password", "salt", 1000, false));
  }
}

TEST(ShaCryptFunctionsTest, RoundsFieldOnlyWhenAsked) {
  const std::string without = callCrypt(6, "password", "salt", 5000, false);
  const std::string with = callCrypt(6, "password", "salt", 5000, true);
  EXPECT_EQ(without.substr(0, 8), "$6$salt$");
  EXPECT_EQ(with.substr(0, 20), "$6$rounds=5000$salt$");
  EXPECT_EQ(with.substr(20), without.substr(8));
  // The field follows the flag, not the count.
  EXPECT_EQ(callCrypt(6, "password", "salt", 1234, false).substr(0, 8), "$6$salt$");
}

TEST(ShaCryptFunctionsTest, LengthsOfTheHashStrings) {
  EXPECT_EQ(callCrypt(5, "password", "tenletters", 5000, false).size(), 57U);
  EXPECT_EQ(callCrypt(6, "password", "tenletters", 5000, false).size(), 100U);
}

TEST(ShaCryptFunctionsTest, BufferOneLongerThanTheStringIsEnough) {
  for (const int tag : {5, 6}) {
    for (const bool custom : {false, true}) {
      const std::string full = callCrypt(tag, "password", "saltsalt", 1000, custom);
      const std::size_t fixedPart = custom ? 3 + 12 : 3;  // prefix and "rounds=1000$"
      for (std::size_t length = fixedPart; length <= full.size() + 1; ++length) {
        // Every length near the salt and near the end, a sample in between.
        const bool nearEdge = length < fixedPart + 12 || length + 3 > full.size();
        if (!nearEdge && length % 9 != 0) continue;
        std::array<char, 256> buffer;
        buffer.fill('X');
        errno = 0;
        const char* result =
            cryptFor(tag)("password", 8, "saltsalt", 8, 1000, custom, buffer.data(), length);
        if (length == full.size() + 1) {
          ASSERT_EQ(result, buffer.data());
          EXPECT_EQ(std::string(result), full);
        } else {
          ASSERT_EQ(result, nullptr) << length;
          EXPECT_EQ(errno, ERANGE) << length;
          // What was written is a prefix of the full string.
          std::string_view written(buffer.data(), length);
          written = written.substr(0, written.find('\0'));
          EXPECT_TRUE(full.starts_with(written)) << length << ' ' << written;
        }
        // Nothing is written past the stated length.
        for (std::size_t i = length; i < buffer.size(); ++i) {
          ASSERT_EQ(buffer[i], 'X') << length << ' ' << i;
        }
      }
    }
  }
}

TEST(ShaCryptFunctionsTest, UnusedBufferIsFilledWithNulBytes) {
  std::array<char, 200> buffer;
  buffer.fill('X');
  ASSERT_NE(sha512Crypt("pw", 2, "salt", 4, 1000, false, buffer.data(), 124), nullptr);
  const std::size_t length = std::strlen(buffer.data());
  EXPECT_EQ(length, 94U);
  for (std::size_t i = length; i < 124; ++i) EXPECT_EQ(buffer[i], '\0') << i;
  for (std::size_t i = 124; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], 'X') << i;
}

TEST(ShaCryptFunctionsTest, SaltWithNulByte) {
  const std::string_view salt = "ab\0cd"sv;
  const std::string hash = callCrypt(6, "password", salt, 1000, false);
  // The salt text ends at the NUL; the digest covers all five bytes.
  EXPECT_EQ(hash.substr(0, 6), "$6$ab$");
  EXPECT_EQ(hash.size(), 6U + 86U);
  EXPECT_EQ(hash, reference(6, "password", salt, 1000, false));
  EXPECT_NE(hash, callCrypt(6, "password", "ab", 1000, false));
  // The whole salt length still counts against the buffer.
  EXPECT_EQ(callCrypt(6, "password", salt, 1000, false, 3 + 5 + 1 + 86), "<null>");
  EXPECT_EQ(callCrypt(6, "password", salt, 1000, false, 3 + 5 + 1 + 86 + 1), hash);
}

TEST(ShaCryptFunctionsTest, BuffersShorterThanThePrefixFailCleanly) {
  for (std::size_t length = 0; length < 3; ++length) {
    std::array<char, 8> buffer;
    buffer.fill('X');
    errno = 0;
    EXPECT_EQ(sha512Crypt("pw", 2, "s", 1, 1000, false, buffer.data(), length), nullptr);
    EXPECT_EQ(errno, ERANGE);
    for (std::size_t i = length; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], 'X');
  }
  std::array<char, 16> buffer;
  buffer.fill('X');
  EXPECT_EQ(sha512Crypt("pw", 2, "s", 1, 1000, true, buffer.data(), 8), nullptr);
  EXPECT_EQ(errno, ERANGE);
  for (std::size_t i = 8; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], 'X');
}

TEST(ShaCryptFunctionsTest, UnalignedKeyAndSalt) {
  const std::string key = "an unaligned key of some length";
  const std::string salt = "unalignedSalt";
  const std::string expected = callCrypt(6, key, salt, 1000, false);
  std::array<char, 128> storage{};
  for (std::size_t offset = 1; offset < 8; ++offset) {
    std::memcpy(storage.data() + offset, key.data(), key.size());
    std::memcpy(storage.data() + 64 + offset, salt.data(), salt.size());
    EXPECT_EQ(callCrypt(6, std::string_view(storage.data() + offset, key.size()),
                        std::string_view(storage.data() + 64 + offset, salt.size()), 1000, false),
              expected);
  }
}

TEST(ShaCryptFunctionsTest, NullKeyOfLengthZero) {
  std::array<char, 124> buffer{};
  ASSERT_NE(sha512Crypt(nullptr, 0, "salt", 4, 1000, false, buffer.data(), buffer.size()), nullptr);
  EXPECT_EQ(std::string(buffer.data()), callCrypt(6, "", "salt", 1000, false));
}

}  // namespace
}  // namespace korvane::security
