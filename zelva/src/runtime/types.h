// The three numbers that describe every tensor: what an element is, how elements are ordered and where the
// memory lives. The values are stored in model and configuration files and compared exactly by the kernels'
// match tests, so they never move; the gaps in the layout numbering are deliberate.
//
// Each vocabulary is an unscoped enumeration over uint32_t nested in a struct, so that its values compare
// directly against the uint32_t fields of a shape: `shape.layout == Layout::C4HW4`.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace zelva {
namespace runtime {

struct DataType {
  enum Value : uint32_t {
    FLOAT32 = 0,
    FLOAT16 = 1,
    INT32 = 2,
    INT16 = 3,
    INT8 = 4,
    UINT32 = 5,
    UINT16 = 6,
    UINT8 = 7,
  };
};

// Dims as stored in the shape are noted beside each value; blocked layouts show their lanes as trailing dims.
struct Layout {
  enum Value : uint32_t {
    CHW = 0,           // [C, H, W]
    HWC = 1,           // [H, W, C]
    C4HW4 = 2,         // [C/4, H, W, 4]
    C8HW8 = 3,         // [C/8, H, W, 8]
    NCHW = 8,          // [N, C, H, W]
    N4C4HW4n4c = 9,    //
    N8C8HW8n8c = 10,   //
    GNCHW = 11,        // [G, N, C, H, W]: convolution weight, canonical form
    GN4C4HW4n4c = 12,  // [G, N/4, C/4, H, W, 4(c), 4(n)]
    GN8C8HW8n8c = 16,  // [G, N/8, C/8, H, W, 8(c), 8(n)]
    G4NCHW4g = 17,     // [G/4, N, C, H, W, 4]
    G8NCHW8g = 18,     // [G/8, N, C, H, W, 8]
    GN4CHW4n = 19,     // [G, N/4, C, H, W, 4]
    GN8CHW8n = 20,     // [G, N/8, C, H, W, 8]; also used for [G, N, C/8, H, W, 8]
    GN = 21,           // [G, N]: convolution bias
    NHWC = 22,         // [N, H, W, C]
    FLEXIABLE = 23,    // row-major over whatever dims the shape has
    C = 24,            // [C]
    BC = 25,           // [B, C]
    SC = 30,           // [S, C], time-major
    OIL = 32,          // three dims, row-major
    CL = 33,           // [C, L]
    OI = 34,           // [O, I]
    O8I8o8i8 = 35,     // [O/8, I/8, 8(i), 8(o)]
  };
};

// High 16 bits: device family (1 host, 2 OpenGL, 4 Metal). Only MainMemory is ever allocated or computed on.
struct Location {
  enum Value : uint32_t {
    CPUObject = 0x10000,
    MainMemory = 0x10001,
    OpenGLObject = 0x20000,
    OpenGLSSBO = 0x20001,
    OpenGLUBO = 0x20002,
    OpenGLImage = 0x20004,
    MetalObject = 0x40000,
    MetalBuffer = 0x41001,
    MetalNoCopyBuffer = 0x41002,
    MetalTempBuffer = 0x41004,
    MetalImage = 0x42001,
    MetalTempImage = 0x42002,
  };
};

// Bytes of one element; 0 for any value outside the table, which makes every byte size of such a tensor 0 and
// every element address its base. Never fails.
constexpr uint32_t DataTypeSize(uint32_t data_type) {
  constexpr uint8_t kSizes[8] = {4, 2, 4, 2, 1, 4, 2, 1};
  return data_type < 8 ? kSizes[data_type] : 0;
}

// String forms, for diagnostics only: nothing that loads, selects or runs looks anything up here.
// The maps are built when the library is loaded. Layout codes without a string form are absent.
const std::map<uint32_t, std::string>& DataTypeStrings();
const std::map<uint32_t, std::string>& LayoutStrings();
const std::map<uint32_t, std::string>& LocationStrings();

// The table's string, or the value in decimal when the table has none.
std::string DataTypeToString(uint32_t data_type);
std::string LayoutToString(uint32_t layout);
std::string LocationToString(uint32_t location);

}  // namespace runtime
}  // namespace zelva
