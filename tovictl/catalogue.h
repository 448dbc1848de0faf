// What has a name: results, NV items, services. EFS files stand in velmor_efs_files.h, statistics
// in named_statistics.h. The completion, the manual and every verdict take them from here.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "qmi_client.h"

namespace ctl {

// A result with its name: "94 (NOT_SUPPORTED)". An unknown one is just its number.
std::string qmi_error_text(uint32_t error);
std::string nv_result_text(int32_t result);   // of the modem's NV manager
std::string efs_result_text(int32_t result);  // a negative errno value
std::string common_result_text(int32_t result);

// Whether a refusal says that there is no such item or file.
bool nv_is_absent(int32_t result);
bool efs_is_absent(int32_t result);

struct KnownNvItem {
  uint16_t id;
  const char* help;
  bool identity = false;  // of the device: never carried to another one
};
std::span<const KnownNvItem> known_nv_items();

inline constexpr uint16_t kImeiItem = 550;

// The services that the program needs.
struct KnownService {
  const char* title;
  qmi_idl_service_object_type (*description)();
  const char* used_for;
};
std::span<const KnownService> known_services();

// "extension"; the name in the table of its messages for one that is not known here.
const char* service_title(const qmi_idl_service_object& service);

}  // namespace ctl
