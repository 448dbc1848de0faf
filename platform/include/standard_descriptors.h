// Standard input, output and error.
#pragma once

// Opens /dev/null in place of those that the caller of this program has closed: a file or socket
// that is opened later would take their number, and what is printed would go into it. For the
// beginning of `main`.
void fill_standard_descriptors();
