#include "catalogue.h"

#include <errno.h>
#include <string.h>

#include <iterator>

#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_service.h"
#include "pdc_service.h"
#include "uim_service.h"
#include "velmor_extend_service.h"

namespace ctl {
namespace {

struct NamedResult {
  int32_t code;
  const char* name;
};

// clang-format off

// The published QMI errors that modems give in answer to what is sent here, and their neighbours.
constexpr NamedResult kQmiErrors[] = {
  {1, "MALFORMED_MESSAGE"},     {2, "NO_MEMORY"},              {3, "INTERNAL"},
  {4, "ABORTED"},               {5, "CLIENT_IDS_EXHAUSTED"},   {6, "UNABORTABLE_TRANSACTION"},
  {7, "INVALID_CLIENT_ID"},     {8, "NO_THRESHOLDS_PROVIDED"}, {9, "INVALID_HANDLE"},
  {10, "INVALID_PROFILE"},      {11, "INVALID_PIN_ID"},        {12, "INCORRECT_PIN"},
  {13, "NO_NETWORK_FOUND"},     {14, "CALL_FAILED"},           {15, "OUT_OF_CALL"},
  {16, "NOT_PROVISIONED"},      {17, "MISSING_ARGUMENT"},      {19, "ARGUMENT_TOO_LONG"},
  {22, "INVALID_TRANSACTION"},  {23, "DEVICE_IN_USE"},         {24, "NETWORK_UNSUPPORTED"},
  {25, "DEVICE_UNSUPPORTED"},   {26, "NO_EFFECT"},             {34, "AUTHENTICATION_FAILED"},
  {35, "PIN_BLOCKED"},          {36, "PIN_ALWAYS_BLOCKED"},    {37, "UIM_UNINITIALIZED"},
  {41, "INVALID_ID"},           {46, "GENERAL_ERROR"},         {47, "UNKNOWN_ERROR"},
  {48, "INVALID_ARGUMENT"},     {49, "INVALID_INDEX"},         {50, "NO_ENTRY"},
  {51, "DEVICE_STORAGE_FULL"},  {52, "DEVICE_NOT_READY"},      {53, "NETWORK_NOT_READY"},
  {60, "INVALID_TRANSITION"},   {66, "SESSION_INVALID"},       {68, "INSUFFICIENT_RESOURCES"},
  {69, "DISABLED"},             {70, "INVALID_OPERATION"},     {71, "INVALID_QMI_COMMAND"},
  {74, "INFORMATION_UNAVAILABLE"}, {77, "BUNDLING_NOT_SUPPORTED"}, {80, "SIM_FILE_NOT_FOUND"},
  {82, "ACCESS_DENIED"},        {83, "HARDWARE_RESTRICTED"},   {90, "INCOMPATIBLE_STATE"},
  {93, "NO_RADIO"},             {94, "NOT_SUPPORTED"},         {95, "NO_SUBSCRIPTION"},
  {102, "NO_SIM"},
};

constexpr NamedResult kNvResults[] = {
  {1, "busy"},       {2, "unknown operation"}, {3, "full"},      {4, "not stored"},
  {5, "not active"}, {6, "bad length"},        {7, "read-only"}, {9, "no memory"},
};

constexpr NamedResult kEfsResults[] = {
  {EPERM, "not permitted"},         {ENOENT, "no such file"},      {EIO, "cannot be read"},
  {ENOMEM, "no memory"},            {EACCES, "no access"},         {EEXIST, "is there already"},
  {ENOTDIR, "runs through a file"}, {EISDIR, "is a folder"},       {EINVAL, "not possible"},
  {EMFILE, "too many files"},       {ENOSPC, "no room"},           {EROFS, "read-only"},
  {ENAMETOOLONG, "name too long"},  {ENOTEMPTY, "not empty"},
};

constexpr KnownNvItem kNvItems[] = {
  {0,    "ESN of the device", true},
  {10,   "preferred mode"},
  {550,  "IMEI, one digit a nibble", true},
  {1943, "MEID of the device", true},
};

constexpr KnownService kServices[] = {
  {"extension",  [] { return velmor_extend_get_service_object_internal_v01(1, 1, 6); }, "NV, EFS and common requests: modules 3 to 7, 11; get, put, save"},
  {"UIM",        [] { return uim_get_service_object_internal_v01(1, 109, 6); },         "cards and eSIM: module 5"},
  {"NAS",        [] { return nas_get_service_object_internal_v01(1, 397, 6); },         "network scans: module 12"},
  {"SAR",        [] { return sar_get_service_object_internal_v01(1, 15, 6); },          "SAR DSI: module 5"},
  {"PDC",        [] { return pdc_get_service_object_internal_v01(1, 16, 6); },          "configurations: module 10"},
  {"statistics", [] { return vs_get_service_object_internal_v01(1, 2, 6); },            "statistics: module 9, watch"},
};

// clang-format on

std::string named(int64_t code, const char* name) {
  const std::string number = std::to_string(code);
  return name != nullptr ? number + " (" + name + ")" : number;
}

const char* find_name(std::span<const NamedResult> table, int32_t code) {
  for (const NamedResult& known : table) {
    if (known.code == code) return known.name;
  }
  return nullptr;
}

}  // namespace

std::string qmi_error_text(uint32_t error) {
  return named(error, find_name(kQmiErrors, static_cast<int32_t>(error)));
}

std::string nv_result_text(int32_t result) {
  return named(result,
               result < 0 ? find_name(kEfsResults, -result) : find_name(kNvResults, result));
}

std::string efs_result_text(int32_t result) {
  return named(result, result < 0 ? find_name(kEfsResults, -result) : nullptr);
}

std::string common_result_text(int32_t result) {
  return result < 0 ? efs_result_text(result) : qmi_error_text(static_cast<uint32_t>(result));
}

bool nv_is_absent(int32_t result) {
  constexpr int32_t kNotActive = 5;
  return result == kNotActive;
}

bool efs_is_absent(int32_t result) {
  return result == -ENOENT || result == -ENOTDIR;
}

std::span<const KnownNvItem> known_nv_items() {
  return kNvItems;
}

std::span<const KnownService> known_services() {
  return kServices;
}

const char* service_title(const qmi_idl_service_object& service) {
  for (const KnownService& known : kServices) {
    if (known.description() == &service) return known.title;
  }
  return service.name;
}

}  // namespace ctl
