#include "utilities/qcril_qmi_err_utils.h"

#include "qmi_client.h"

namespace {

constexpr int kRilGenericFailure = 2;
constexpr uint32_t kSuccess = 0;
constexpr uint32_t kFailure = 1;
constexpr uint32_t kNoError = 0x00;
constexpr uint32_t kNoEffect = 0x1A;

}  // namespace

int qcril_qmi_util_convert_qmi_response_codes_to_ril_result(int transport_code,
                                                            const qmi_response_type_v01* response) {
  const bool transported = transport_code == QMI_NO_ERR || transport_code == QMI_SERVICE_ERR;
  if (!transported) return kRilGenericFailure;
  const bool good = response == nullptr || response->result == kSuccess ||
                    (response->result == kFailure &&
                     (response->error == kNoError || response->error == kNoEffect));
  return good ? 0 : kRilGenericFailure;
}
