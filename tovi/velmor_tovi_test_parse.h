// Numbers from the command line, and bytes to text.
#pragma once

// Hexadecimal digits, no prefix: digit[k] x 16^(n-1-k), each term at most 2147483647, summed in 32
// bits. A character that is no digit counts as a digit 0. Null (with a message) and the empty text
// give 0.
int velmor_hex_string_to_int(char* text);

// Decimal as atoi reads it, or hexadecimal after "0x" or "0X". Null (with a message) gives 0.
int velmor_string_to_int(char* text);

// Decimal: leading blanks and a sign, then digits up to the first other character; 0 for none.
int velmor_atoi(const char* text);

// Writes two lower-case digits for each of `count` bytes into `out`, and no NUL. Nothing for null
// bytes or a count below 1.
void velmor_byte_to_hex(unsigned char* bytes, int count, char* out);
