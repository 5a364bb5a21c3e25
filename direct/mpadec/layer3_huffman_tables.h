// Huffman code tables of layer III: for every pair table the code word and
// its length for each (x, y), x and y from 0 to size - 1; the two tables of
// quadruples (v, w, x, y) of the count1 region; and each table number's
// escape length (linbits). Tables 16 to 23 share one code, as do 24 to 31.
#pragma once
#include "platform/mai_types.h"

struct MpaHuffCode {
  u16 code;
  u8 length;
};

struct MpaPairTableDef {
  const MpaHuffCode *codes;  // size x size entries, x major; null: table not present
  int size;
};

// Escape bits added to a value of 15, by table number.
constexpr u8 kMpaLinbits[32] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0,
                                1, 2, 3, 4, 6, 8, 10, 13, 4, 5, 6, 7, 8, 9, 11, 13};

// Table 1: two values per dimension.
constexpr MpaHuffCode kMpaPair1[4] = {{0b1, 1}, {0b001, 3}, {0b01, 2}, {0b000, 3}};

// Quadruple table A, indexed by v w x y as a 4-bit number.
constexpr MpaHuffCode kMpaQuadA[16] = {
    {0b1, 1},     {0b0101, 4},  {0b0100, 4},  {0b00101, 5}, {0b0110, 4},  {0b000101, 6},
    {0b00100, 5}, {0b000100, 6}, {0b0111, 4}, {0b00011, 5}, {0b00110, 5}, {0b000000, 6},
    {0b00111, 5}, {0b000010, 6}, {0b000011, 6}, {0b000001, 6}};
// Quadruple table B: four bits, the inverted value.
constexpr MpaHuffCode kMpaQuadB[16] = {
    {15, 4}, {14, 4}, {13, 4}, {12, 4}, {11, 4}, {10, 4}, {9, 4}, {8, 4},
    {7, 4},  {6, 4},  {5, 4},  {4, 4},  {3, 4},  {2, 4},  {1, 4}, {0, 4}};

// The pair tables by table number (0 and the unused 4 and 14 have none).
// Only the tables entered so far are present; a granule that selects a
// missing table is refused.
constexpr MpaPairTableDef kMpaPairTables[32] = {
    {nullptr, 0}, {kMpaPair1, 2},
};
