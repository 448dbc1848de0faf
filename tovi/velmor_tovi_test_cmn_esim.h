// Command 10 of module 5: the card slot that a removable SIM and the eUICC share.
#pragma once

#include <cstdint>

// `tovi 5 10 esim_on debug_on`: 1 switches the slot to the eUICC, 2 to the removable SIM, 3 shows
// the EID, 4 the state of the cards, 5 resets the eUICC's memory. `debug_on` 0 leaves only the
// results on standard output. -1 when arguments are missing, else 0.
int velmor_cmn_esim_test(int argc, char** argv);

// Whether `eid_text`, 32 digits, has the right check digits (ISO/IEC 7064 MOD 97-10).
bool is_eid_valid(const char* eid_text);

// Stores the EID in the modem, unless one is stored there already.
void save_eid_to_efs(const uint8_t eid[16]);

// Prints the states of two cards in words.
void map_sim_state(const uint8_t state[2]);
