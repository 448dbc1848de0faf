// The files of the modem's file system that this program, and the people who use it, work with.
#pragma once

#include <string>

struct velmor_efs_file {
  const char* path;
  const char* help;     // one line, for the completion
  bool hidden = false;  // identifies the device: the trace shows no content of it

  constexpr int path_len() const { return static_cast<int>(std::char_traits<char>::length(path)); }
};

inline constexpr velmor_efs_file kEfsEsimEnable = {"/nv/item_files/modem/uim/uimdrv/esim_enable",
                                                   "what slot 2 holds: 1 eUICC, 0 removable SIM"};
inline constexpr velmor_efs_file kEfsEsimEid = {"/nv/item_files/modem/uim/uimdrv/esim_eid",
                                                "EID of the eUICC, 16 bytes", true};
inline constexpr velmor_efs_file kEfsGpio = {"/nv/item_files/modem/velmor/rf_ant_port_config",
                                             "RF GPIO values: count, values"};
inline constexpr velmor_efs_file kEfsTx = {"/nv/item_files/modem/antenna/ant_tx_config",
                                           "TX antenna: antenna, system, band list"};
inline constexpr velmor_efs_file kEfsSsrUpdateCount = {
    "/nv/item_files/modem/velmor/ssr_update_count", "how many full dumps were triggered"};
inline constexpr velmor_efs_file kEfsSkarnPrint = {"/skarn/skarn_print_mask",
                                                   "what the modem's statistics framework prints"};
inline constexpr velmor_efs_file kEfsQmiPrint = {"/nv/item_files/modem/velmor/qmi_print_flag",
                                                 "whether the modem prints QMI: 1 on"};
inline constexpr velmor_efs_file kEfsRfPrint = {"/nv/item_files/modem/velmor/rf_print_mask",
                                                "what the modem's RF part prints"};

inline constexpr velmor_efs_file kKnownEfsFiles[] = {
    kEfsEsimEnable,
    kEfsEsimEid,
    kEfsGpio,
    kEfsTx,
    kEfsSsrUpdateCount,
    kEfsSkarnPrint,
    kEfsQmiPrint,
    kEfsRfPrint,
    {"/nv/item_files/modem/mmode/device_mode", "voice and data domain of the device"},
    {"/nv/item_files/modem/mmode/lte_bandpref", "LTE bands that may be used, a bit each"},
    {"/nv/item_files/ims/IMS_enable", "IMS: 1 on"},
};
