#include "security/Sha512Avx512.h"

#if KORVANE_SHA512_AVX512_ASSEMBLY

#include <cstdint>

namespace korvane::security {
namespace {

using Word = Sha512Traits::Word;

// The assembly is put together from the macros below. Its operands:
//   v0..v7   the working variables; their roles a..h rotate by one place
//            each round (the register that was h is a next), so that no
//            value moves between rounds;
//   ab0, ab1 a ^ b of this round and of the last one, alternately;
//   t0, t1   temporaries (t0 brings the blocks' address in);
//   kw       the schedule words plus round constants, in the scratch:
//            the first block's at [0, 80), the second's at [80, 160);
//   k        the round constants; swap, the byte order mask; last, the
//            low half of the constant of round 64 (see below).
// The vector registers xmm16..xmm23 hold the last sixteen schedule words,
// a pair in each (ymm: the first block's pair in the low half, the
// second's in the high half); xmm24..xmm27 are temporaries. Registers 16
// and up exist only with AVX-512, and no calling convention keeps them.
// The fourteen general registers the operands take are all there are
// besides the stack and frame pointers.

#define KORVANE_SHA512_OP(name) "%[" #name "]"
#define KORVANE_SHA512_LINE(text) text "\n\t"
#define KORVANE_SHA512_LINE_THEN(text, next) text "\n\t" next
#define KORVANE_SHA512_VEC(width, n) "%%" #width "mm" #n
#define KORVANE_SHA512_KW(j) "8*" #j "(%[kw])"

// h += kw + Ch(e, f, g) + Sigma1(e). Ch is (~e & g) + (e & f): the two
// have no bit in common, so their sum is their or, and each is added as
// soon as it is ready. `ab`, which this round writes only later, holds
// them meanwhile.
#define KORVANE_SHA512_E_HALF(e, f, g, h, ab, kwAt)                                      \
  KORVANE_SHA512_LINE("add " kwAt ", " KORVANE_SHA512_OP(h))                             \
  KORVANE_SHA512_LINE("rorx $14, " KORVANE_SHA512_OP(e) ", %[t0]")                       \
  KORVANE_SHA512_LINE(                                                                   \
      "andn " KORVANE_SHA512_OP(g) ", " KORVANE_SHA512_OP(e) ", " KORVANE_SHA512_OP(ab)) \
  KORVANE_SHA512_LINE("rorx $18, " KORVANE_SHA512_OP(e) ", %[t1]")                       \
  KORVANE_SHA512_LINE("add " KORVANE_SHA512_OP(ab) ", " KORVANE_SHA512_OP(h))            \
  KORVANE_SHA512_LINE("mov " KORVANE_SHA512_OP(f) ", " KORVANE_SHA512_OP(ab))            \
  KORVANE_SHA512_LINE("xor %[t1], %[t0]")                                                \
  KORVANE_SHA512_LINE("and " KORVANE_SHA512_OP(e) ", " KORVANE_SHA512_OP(ab))            \
  KORVANE_SHA512_LINE("rorx $41, " KORVANE_SHA512_OP(e) ", %[t1]")                       \
  KORVANE_SHA512_LINE("add " KORVANE_SHA512_OP(ab) ", " KORVANE_SHA512_OP(h))            \
  KORVANE_SHA512_LINE("xor %[t1], %[t0]")                                                \
  KORVANE_SHA512_LINE("add %[t0], " KORVANE_SHA512_OP(h))

// d += h, the new e; h += Sigma0(a) + Maj(a, b, c), with Maj as
// b ^ ((a ^ b) & (b ^ c)): b ^ c is the last round's a ^ b (`abLast`),
// which turns into Maj in place. After each instruction comes one of the
// schedule's (x0..x11, empty where it has fewer), so that the vector unit
// works beside the rounds at an even pace.
#define KORVANE_SHA512_A_HALF(a, b, d, h, ab, abLast, x0, x1, x2, x3, x4, x5, x6, x7, x8, x9, x10, \
                              x11)                                                                 \
  KORVANE_SHA512_LINE_THEN("mov " KORVANE_SHA512_OP(a) ", " KORVANE_SHA512_OP(ab), x0)             \
  KORVANE_SHA512_LINE_THEN("rorx $28, " KORVANE_SHA512_OP(a) ", %[t0]", x1)                        \
  KORVANE_SHA512_LINE_THEN("rorx $34, " KORVANE_SHA512_OP(a) ", %[t1]", x2)                        \
  KORVANE_SHA512_LINE_THEN("xor " KORVANE_SHA512_OP(b) ", " KORVANE_SHA512_OP(ab), x3)             \
  KORVANE_SHA512_LINE_THEN("add " KORVANE_SHA512_OP(h) ", " KORVANE_SHA512_OP(d), x4)              \
  KORVANE_SHA512_LINE_THEN("xor %[t1], %[t0]", x5)                                                 \
  KORVANE_SHA512_LINE_THEN("rorx $39, " KORVANE_SHA512_OP(a) ", %[t1]", x6)                        \
  KORVANE_SHA512_LINE_THEN("and " KORVANE_SHA512_OP(ab) ", " KORVANE_SHA512_OP(abLast), x7)        \
  KORVANE_SHA512_LINE_THEN("xor %[t1], %[t0]", x8)                                                 \
  KORVANE_SHA512_LINE_THEN("xor " KORVANE_SHA512_OP(b) ", " KORVANE_SHA512_OP(abLast), x9)         \
  KORVANE_SHA512_LINE_THEN("add " KORVANE_SHA512_OP(abLast) ", " KORVANE_SHA512_OP(h), x10)        \
  KORVANE_SHA512_LINE_THEN("add %[t0], " KORVANE_SHA512_OP(h), x11)

// The indirection lets the schedule's twelve strings, which a macro call
// in the last argument expands to, count as twelve arguments.
#define KORVANE_SHA512_A_HALF_OF(...) KORVANE_SHA512_A_HALF(__VA_ARGS__)

// Round j of sixteen, reading its constant plus schedule word at kw[j];
// `...` is the schedule's part.
#define KORVANE_SHA512_ROUND(a, b, c, d, e, f, g, h, ab, abLast, j, ...) \
  KORVANE_SHA512_E_HALF(e, f, g, h, ab, KORVANE_SHA512_KW(j))            \
  KORVANE_SHA512_A_HALF_OF(a, b, d, h, ab, abLast, __VA_ARGS__)

#define KORVANE_SHA512_NO_SCHEDULE "", "", "", "", "", "", "", "", "", "", "", ""

// The schedule words t, t + 1 (t even) replace words t - 16, t - 15 in ring
// register `s`; `n` holds words t - 14, t - 13, `f` and `g` words t - 8
// to t - 5, `p` words t - 2, t - 1. First half: sigma1 of words t - 2,
// t - 1 added in place; words t - 15, t - 14 (for sigma0) to temporary 24,
// words t - 7, t - 6 to temporary 25.
#define KORVANE_SHA512_EXPAND_FIRST(w, s, n, f, g, p)                                              \
  KORVANE_SHA512_LINE("vpalignr $8, " KORVANE_SHA512_VEC(w, s) ", " KORVANE_SHA512_VEC(            \
      w, n) ", " KORVANE_SHA512_VEC(w, 24)),                                                       \
      KORVANE_SHA512_LINE("vprorq $19, " KORVANE_SHA512_VEC(w, p) ", " KORVANE_SHA512_VEC(w, 25)), \
      KORVANE_SHA512_LINE("vprorq $61, " KORVANE_SHA512_VEC(w, p) ", " KORVANE_SHA512_VEC(w, 26)), \
      KORVANE_SHA512_LINE("vpsrlq $6, " KORVANE_SHA512_VEC(w, p) ", " KORVANE_SHA512_VEC(w, 27)),  \
      KORVANE_SHA512_LINE("vpternlogq $0x96, " KORVANE_SHA512_VEC(w, 25) ", " KORVANE_SHA512_VEC(  \
          w, 26) ", " KORVANE_SHA512_VEC(w, 27)),                                                  \
      KORVANE_SHA512_LINE("vpaddq " KORVANE_SHA512_VEC(w, 27) ", " KORVANE_SHA512_VEC(             \
          w, s) ", " KORVANE_SHA512_VEC(w, s)),                                                    \
      KORVANE_SHA512_LINE("vpalignr $8, " KORVANE_SHA512_VEC(w, f) ", " KORVANE_SHA512_VEC(        \
          w, g) ", " KORVANE_SHA512_VEC(w, 25)),                                                   \
      "", "", "", "", ""

// Second half: sigma0 of words t - 15, t - 14 and words t - 7, t - 6 added
// in place; the two words plus their round constants go to kw[t], kw[t + 1]
// (t = 16 + j from kw and k), for one block ...
#define KORVANE_SHA512_EXPAND_SECOND_ONE(s, j)                                \
  KORVANE_SHA512_SIGMA0_PART(x, s),                                           \
      KORVANE_SHA512_LINE("vpaddq 128+8*" #j "(%[k]), %%xmm" #s ", %%xmm26"), \
      KORVANE_SHA512_LINE("vmovdqa64 %%xmm26, 128+8*" #j "(%[kw])"), "", "", "", ""

// ... or for two, the second block's to kw[80 + t], kw[81 + t].
#define KORVANE_SHA512_EXPAND_SECOND_TWO(s, j)                            \
  KORVANE_SHA512_SIGMA0_PART(y, s),                                       \
      KORVANE_SHA512_LINE("vbroadcasti32x4 128+8*" #j "(%[k]), %%ymm27"), \
      KORVANE_SHA512_LINE("vpaddq %%ymm27, %%ymm" #s ", %%ymm26"),        \
      KORVANE_SHA512_LINE("vmovdqa64 %%xmm26, 128+8*" #j "(%[kw])"),      \
      KORVANE_SHA512_LINE("vextracti32x4 $1, %%ymm26, 768+8*" #j "(%[kw])"), "", ""

#define KORVANE_SHA512_SIGMA0_PART(w, s)                                                           \
  KORVANE_SHA512_LINE("vprorq $1, " KORVANE_SHA512_VEC(w, 24) ", " KORVANE_SHA512_VEC(w, 26)),     \
      KORVANE_SHA512_LINE("vprorq $8, " KORVANE_SHA512_VEC(w, 24) ", " KORVANE_SHA512_VEC(w, 27)), \
      KORVANE_SHA512_LINE("vpsrlq $7, " KORVANE_SHA512_VEC(w, 24) ", " KORVANE_SHA512_VEC(w, 24)), \
      KORVANE_SHA512_LINE("vpternlogq $0x96, " KORVANE_SHA512_VEC(w, 26) ", " KORVANE_SHA512_VEC(  \
          w, 27) ", " KORVANE_SHA512_VEC(w, 24)),                                                  \
      KORVANE_SHA512_LINE("vpaddq " KORVANE_SHA512_VEC(w, 25) ", " KORVANE_SHA512_VEC(             \
          w, s) ", " KORVANE_SHA512_VEC(w, s)),                                                    \
      KORVANE_SHA512_LINE("vpaddq " KORVANE_SHA512_VEC(w, 24) ", " KORVANE_SHA512_VEC(             \
          w, s) ", " KORVANE_SHA512_VEC(w, s))

// Sixteen rounds, the first of them reading kw[0]; each pair of them
// expands the pair of schedule words sixteen rounds ahead with the
// macros `first` and `second` (w: the ring's width, x or y).
#define KORVANE_SHA512_16_ROUNDS(w, first, second)                                                 \
  KORVANE_SHA512_ROUND(v0, v1, v2, v3, v4, v5, v6, v7, ab0, ab1, 0, first(w, 16, 17, 20, 21, 23))  \
  KORVANE_SHA512_ROUND(v7, v0, v1, v2, v3, v4, v5, v6, ab1, ab0, 1, second(16, 0))                 \
  KORVANE_SHA512_ROUND(v6, v7, v0, v1, v2, v3, v4, v5, ab0, ab1, 2, first(w, 17, 18, 21, 22, 16))  \
  KORVANE_SHA512_ROUND(v5, v6, v7, v0, v1, v2, v3, v4, ab1, ab0, 3, second(17, 2))                 \
  KORVANE_SHA512_ROUND(v4, v5, v6, v7, v0, v1, v2, v3, ab0, ab1, 4, first(w, 18, 19, 22, 23, 17))  \
  KORVANE_SHA512_ROUND(v3, v4, v5, v6, v7, v0, v1, v2, ab1, ab0, 5, second(18, 4))                 \
  KORVANE_SHA512_ROUND(v2, v3, v4, v5, v6, v7, v0, v1, ab0, ab1, 6, first(w, 19, 20, 23, 16, 18))  \
  KORVANE_SHA512_ROUND(v1, v2, v3, v4, v5, v6, v7, v0, ab1, ab0, 7, second(19, 6))                 \
  KORVANE_SHA512_ROUND(v0, v1, v2, v3, v4, v5, v6, v7, ab0, ab1, 8, first(w, 20, 21, 16, 17, 19))  \
  KORVANE_SHA512_ROUND(v7, v0, v1, v2, v3, v4, v5, v6, ab1, ab0, 9, second(20, 8))                 \
  KORVANE_SHA512_ROUND(v6, v7, v0, v1, v2, v3, v4, v5, ab0, ab1, 10, first(w, 21, 22, 17, 18, 20)) \
  KORVANE_SHA512_ROUND(v5, v6, v7, v0, v1, v2, v3, v4, ab1, ab0, 11, second(21, 10))               \
  KORVANE_SHA512_ROUND(v4, v5, v6, v7, v0, v1, v2, v3, ab0, ab1, 12, first(w, 22, 23, 18, 19, 21)) \
  KORVANE_SHA512_ROUND(v3, v4, v5, v6, v7, v0, v1, v2, ab1, ab0, 13, second(22, 12))               \
  KORVANE_SHA512_ROUND(v2, v3, v4, v5, v6, v7, v0, v1, ab0, ab1, 14, first(w, 23, 16, 19, 20, 22)) \
  KORVANE_SHA512_ROUND(v1, v2, v3, v4, v5, v6, v7, v0, ab1, ab0, 15, second(23, 14))

#define KORVANE_SHA512_NO_FIRST(w, s, n, f, g, p) KORVANE_SHA512_NO_SCHEDULE
#define KORVANE_SHA512_NO_SECOND(s, j) KORVANE_SHA512_NO_SCHEDULE

#define KORVANE_SHA512_16_EXPANDING(w, second) \
  KORVANE_SHA512_16_ROUNDS(w, KORVANE_SHA512_EXPAND_FIRST, second)

// Sixteen rounds that read prepared words from kw on.
#define KORVANE_SHA512_16_PREPARED \
  KORVANE_SHA512_16_ROUNDS(x, KORVANE_SHA512_NO_FIRST, KORVANE_SHA512_NO_SECOND)

// Loads the message words of pair k (bytes 16k..16k+15 of the block at
// t0, big-endian) into ring register 16 + k, and the same plus their round
// constants to kw[2k], kw[2k + 1]; for two blocks also the second block's
// (at t0 + 128) into the high half and to kw[80 + 2k], kw[81 + 2k].
#define KORVANE_SHA512_LOAD_ONE(k, n)                                 \
  KORVANE_SHA512_LINE("vmovdqu64 16*" #k "(%[t0]), %%xmm24")          \
  KORVANE_SHA512_LINE("vpshufb %[swap], %%xmm24, %%xmm" #n)           \
  KORVANE_SHA512_LINE("vpaddq 16*" #k "(%[k]), %%xmm" #n ", %%xmm26") \
  KORVANE_SHA512_LINE("vmovdqa64 %%xmm26, 16*" #k "(%[kw])")

#define KORVANE_SHA512_LOAD_TWO(k, n)                                            \
  KORVANE_SHA512_LINE("vmovdqu64 16*" #k "(%[t0]), %%xmm24")                     \
  KORVANE_SHA512_LINE("vinserti32x4 $1, 128+16*" #k "(%[t0]), %%ymm24, %%ymm24") \
  KORVANE_SHA512_LINE("vpshufb %[swap], %%ymm24, %%ymm" #n)                      \
  KORVANE_SHA512_LINE("vbroadcasti32x4 16*" #k "(%[k]), %%ymm25")                \
  KORVANE_SHA512_LINE("vpaddq %%ymm25, %%ymm" #n ", %%ymm26")                    \
  KORVANE_SHA512_LINE("vmovdqa64 %%xmm26, 16*" #k "(%[kw])")                     \
  KORVANE_SHA512_LINE("vextracti32x4 $1, %%ymm26, 640+16*" #k "(%[kw])")

#define KORVANE_SHA512_LOAD_ALL(load) \
  load(0, 16) load(1, 17) load(2, 18) load(3, 19) load(4, 20) load(5, 21) load(6, 22) load(7, 23)

// The rounds that expand the schedule run as a loop over four groups of
// sixteen (the registers' roles repeat every sixteen rounds), kw and k
// moving on by sixteen words each time: the code stays small enough for the
// processor's cache of decoded instructions, which the crypt loop, calling
// both block counts in turn, would overflow with every round written out.
// The loop ends when k reaches the constant of round 64: no register is
// left for its end, so the low half of that constant, which differs from
// those of rounds 16, 32 and 48, marks it.
#define KORVANE_SHA512_EXPANDING_BLOCK(w, load, second) \
  KORVANE_SHA512_LOAD_ALL(load)                         \
  KORVANE_SHA512_LINE(".p2align 4")                     \
  KORVANE_SHA512_LINE("1:")                             \
  KORVANE_SHA512_16_EXPANDING(w, second)                \
  KORVANE_SHA512_LINE("add $128, %[kw]")                \
  KORVANE_SHA512_LINE("add $128, %[k]")                 \
  KORVANE_SHA512_LINE("cmpl %[last], (%[k])")           \
  KORVANE_SHA512_LINE("jne 1b")                         \
  KORVANE_SHA512_16_PREPARED

// A block whose words are all prepared, from kw up to `end`.
#define KORVANE_SHA512_PREPARED_BLOCK      \
  KORVANE_SHA512_LINE(".p2align 4")        \
  KORVANE_SHA512_LINE("1:")                \
  KORVANE_SHA512_16_PREPARED               \
  KORVANE_SHA512_LINE("add $128, %[kw]")   \
  KORVANE_SHA512_LINE("cmp %[end], %[kw]") \
  KORVANE_SHA512_LINE("jne 1b")

// The low half of the constant of round 64, which ends the loop of the
// rounds that expand the schedule.
constexpr std::int32_t lastGroupMark =
    static_cast<std::int32_t>(static_cast<std::uint32_t>(Sha512Traits::roundConstants[64]));

constexpr bool marksOnlyTheLastGroup() noexcept {
  for (std::size_t round = 16; round < 64; round += 16) {
    if (static_cast<std::int32_t>(
            static_cast<std::uint32_t>(Sha512Traits::roundConstants[round])) == lastGroupMark) {
      return false;
    }
  }
  return true;
}
static_assert(marksOnlyTheLastGroup());

// The byte order mask for vpshufb, for both halves of a 256-bit register.
alignas(32) constexpr std::uint64_t byteSwap[4] = {0x0001020304050607ULL, 0x08090a0b0c0d0e0fULL,
                                                   0x0001020304050607ULL, 0x08090a0b0c0d0e0fULL};

// The working variables of one block's rounds, as the assembly's operands,
// all early clobbers: the assembly writes them before it reads its last
// input (`end`), which must not share a register with one of them.
// separate variables, not an array or a structure, which the compiler
// would load from the state and add back through vector registers.
#define KORVANE_SHA512_OUTPUTS                                                                    \
  [v0] "+&r"(v0), [v1] "+&r"(v1), [v2] "+&r"(v2), [v3] "+&r"(v3), [v4] "+&r"(v4), [v5] "+&r"(v5), \
      [v6] "+&r"(v6), [v7] "+&r"(v7), [ab0] "=&r"(ab0), [ab1] "+&r"(ab1), [t0] "+&r"(t0),         \
      [t1] "=&r"(t1)

#define KORVANE_SHA512_VECTOR_CLOBBERS                                                      \
  "xmm16", "xmm17", "xmm18", "xmm19", "xmm20", "xmm21", "xmm22", "xmm23", "xmm24", "xmm25", \
      "xmm26", "xmm27"

// Declares the working variables from `state`, t0 holding `blocks`' address
// (ab0 and t1 are written before they are read).
#define KORVANE_SHA512_WORKING(state, blocks)                                                    \
  Word v0 = state[0], v1 = state[1], v2 = state[2], v3 = state[3], v4 = state[4], v5 = state[5], \
       v6 = state[6], v7 = state[7];                                                             \
  Word ab0, ab1 = v1 ^ v2, t0 = reinterpret_cast<std::uintptr_t>(blocks), t1

#define KORVANE_SHA512_ADD_TO(state) \
  state[0] += v0;                    \
  state[1] += v1;                    \
  state[2] += v2;                    \
  state[3] += v3;                    \
  state[4] += v4;                    \
  state[5] += v5;                    \
  state[6] += v6;                    \
  state[7] += v7

// Folds the block(s) at `blocks` into `state`, the schedule expanded as
// the rounds go (see KORVANE_SHA512_EXPANDING_BLOCK).
#define KORVANE_SHA512_RUN_EXPANDING(state, blocks, scratch, w, load, second) \
  do {                                                                        \
    KORVANE_SHA512_WORKING(state, blocks);                                    \
    Word* kw = scratch;                                                       \
    const Word* k = Sha512Traits::roundConstants.data();                      \
    __asm__(KORVANE_SHA512_EXPANDING_BLOCK(w, load, second)                   \
            : KORVANE_SHA512_OUTPUTS, [kw] "+&r"(kw), [k] "+&r"(k)            \
            : [swap] "m"(byteSwap), [last] "n"(lastGroupMark)                 \
            : "cc", "memory", KORVANE_SHA512_VECTOR_CLOBBERS);                \
    KORVANE_SHA512_ADD_TO(state);                                             \
  } while (false)

#define KORVANE_SHA512_AVX512 __attribute__((target("avx512f,avx512vl,avx512bw,bmi,bmi2")))

KORVANE_SHA512_AVX512 void compressOne(Sha512::State& state, const unsigned char* block,
                                       Word* scratch) noexcept {
  KORVANE_SHA512_RUN_EXPANDING(state, block, scratch, x, KORVANE_SHA512_LOAD_ONE,
                               KORVANE_SHA512_EXPAND_SECOND_ONE);
}

// The first block's rounds expand both schedules; the second's read its
// prepared words.
KORVANE_SHA512_AVX512 void compressTwo(Sha512::State& state, const unsigned char* blocks,
                                       Word* scratch) noexcept {
  KORVANE_SHA512_RUN_EXPANDING(state, blocks, scratch, y, KORVANE_SHA512_LOAD_TWO,
                               KORVANE_SHA512_EXPAND_SECOND_TWO);
  KORVANE_SHA512_WORKING(state, blocks);
  Word* kw = scratch + Sha512Traits::rounds;
  Word* const end = kw + Sha512Traits::rounds;
  __asm__(KORVANE_SHA512_PREPARED_BLOCK
          : KORVANE_SHA512_OUTPUTS, [kw] "+&r"(kw)
          : [end] "r"(end)
          : "cc", "memory");
  KORVANE_SHA512_ADD_TO(state);
}

}  // namespace

void compressBlocksAvx512(Sha512::State& state, const unsigned char* blocks, std::size_t blockCount,
                          Word* scratch) noexcept {
  for (; blockCount >= 2; blockCount -= 2, blocks += 2 * Sha512::blockLength) {
    compressTwo(state, blocks, scratch);
  }
  if (blockCount > 0) compressOne(state, blocks, scratch);
}

}  // namespace korvane::security

#undef KORVANE_SHA512_OP
#undef KORVANE_SHA512_LINE
#undef KORVANE_SHA512_LINE_THEN
#undef KORVANE_SHA512_VEC
#undef KORVANE_SHA512_KW
#undef KORVANE_SHA512_E_HALF
#undef KORVANE_SHA512_A_HALF
#undef KORVANE_SHA512_A_HALF_OF
#undef KORVANE_SHA512_ROUND
#undef KORVANE_SHA512_NO_SCHEDULE
#undef KORVANE_SHA512_EXPAND_FIRST
#undef KORVANE_SHA512_EXPAND_SECOND_ONE
#undef KORVANE_SHA512_EXPAND_SECOND_TWO
#undef KORVANE_SHA512_SIGMA0_PART
#undef KORVANE_SHA512_16_ROUNDS
#undef KORVANE_SHA512_NO_FIRST
#undef KORVANE_SHA512_NO_SECOND
#undef KORVANE_SHA512_16_EXPANDING
#undef KORVANE_SHA512_16_PREPARED
#undef KORVANE_SHA512_LOAD_ONE
#undef KORVANE_SHA512_LOAD_TWO
#undef KORVANE_SHA512_LOAD_ALL
#undef KORVANE_SHA512_EXPANDING_BLOCK
#undef KORVANE_SHA512_PREPARED_BLOCK
#undef KORVANE_SHA512_OUTPUTS
#undef KORVANE_SHA512_VECTOR_CLOBBERS
#undef KORVANE_SHA512_WORKING
#undef KORVANE_SHA512_ADD_TO
#undef KORVANE_SHA512_RUN_EXPANDING
#undef KORVANE_SHA512_AVX512

#endif
