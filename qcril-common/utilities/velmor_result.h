// Result codes that more than one layer gives.
#pragma once

// Bad arguments: of a common request, or a wrong number of words for a command.
inline constexpr int VELMOR_INVALID_ARGUMENT = 0x0FFFF00A;
