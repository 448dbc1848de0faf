// The maker's utility library: system log, print flags, process identity.
#pragma once

#include <atomic>
#include <cstdint>

// Whether debug messages go to the system log: 1 yes. The property persist.vendor.velmor.print.
uint8_t velmor_utils_get_print_flag();

// Whether debug messages and help are echoed to standard output: not 0. The property
// persist.vendor.velmor.shell_print, or 0 once g_velmor_shell_print_flag is 0.
uint8_t velmor_utils_get_shell_print_flag();

// Both flags, of one look at the properties: what a message needs.
struct velmor_print_flags {
  uint8_t print;
  uint8_t shell_print;
};
velmor_print_flags velmor_utils_get_print_flags();

// Starts at 1; 0 switches the echo off for this process, nothing switches it on.
extern std::atomic<uint8_t> g_velmor_shell_print_flag;

// The radio-interface instance this process is, or 255 when it is none.
uint8_t velmor_get_qcril_process_instance_id();

// Makes this process the radio-interface instance `id`.
void velmor_set_qcril_process_instance_id(uint8_t id);

// The base name of this program.
const char* velmor_get_current_pid_name();

// A system property as a decimal number, or `default_value` when it is unset or holds none
// that fits.
int velmor_get_property_value_from_int(const char* name, int default_value);

// Write one line, without a newline of its own, to the system log.
[[gnu::format(printf, 1, 2)]] void velmor_utils_syslog_dbg(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void velmor_utils_syslog_err(const char* format, ...);
