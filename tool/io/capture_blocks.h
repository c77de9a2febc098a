// SPDX-License-Identifier: Apache-2.0
// Numbers of the pcapng format.
#ifndef TOOL_CAPTURE_BLOCKS_H
#define TOOL_CAPTURE_BLOCKS_H

#include <cstdint>

namespace tool {

inline constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;  // the same in either byte order
inline constexpr std::uint32_t kInterfaceBlock = 1;
inline constexpr std::uint32_t kStatisticsBlock = 5;
inline constexpr std::uint32_t kPacketBlock = 6;
inline constexpr std::uint32_t kByteOrderMark = 0x1A2B3C4D;

inline constexpr std::uint16_t kEndOfOptions = 0;
inline constexpr std::uint16_t kSectionApplication = 4;
inline constexpr std::uint16_t kInterfaceName = 2;
inline constexpr std::uint16_t kInterfaceResolution = 9;
inline constexpr std::uint16_t kStatisticsReceived = 4;
inline constexpr std::uint16_t kStatisticsDropped = 5;

inline constexpr std::uint32_t kBlockBytes = 12;  // around its content: type, and the length twice
inline constexpr std::uint32_t kPacketHeadBytes = 20;
inline constexpr std::uint32_t kLargestBlock = 128U << 20;

}  // namespace tool

#endif
