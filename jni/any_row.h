// The one way a NEON row kernel finishes a row, after libyuv's "any"
// wrappers: the vector code runs whole blocks only, over elements [0, end),
// and the portable row function takes elements [end, count) from where the
// blocks stopped. The tail then gives exactly what the reference gives and
// reads and writes nothing the reference would not.
#ifndef VIDEOHDR_ANY_ROW_H
#define VIDEOHDR_ANY_ROW_H

#include <cstdint>

namespace videohdr {

// The elements of a row of `count` that whole blocks of `Block` cover.
template <int32_t Block, typename Count>
constexpr Count wholeBlocks(Count count) {
  return count - count % Block;
}

// blocks(end) runs the vector blocks over [0, end); rest(end, count - end)
// runs the portable row function from element `end`, with each operand
// advanced by however many of its own elements `end` stands for. `end` is
// normally wholeBlocks<Block>(count); a kernel whose blocks must stop earlier
// (where a block's load would leave the plane) passes its own.
template <typename Count, typename Blocks, typename Rest>
inline void blocksThenRest(Count end, Count count, Blocks blocks, Rest rest) {
  blocks(end);
  if (end < count) rest(end, count - end);
}

}  // namespace videohdr

#endif  // VIDEOHDR_ANY_ROW_H
