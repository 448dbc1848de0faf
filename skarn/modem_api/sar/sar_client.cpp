#include "modem_api/sar/sar_client.h"

#include "modem_api/sar/sar_service.h"
#include "modem_api/service_client_functions.h"

namespace {

extern ServiceClient g_sar;

}  // namespace

SKARN_CLIENT_FUNCTIONS(sar, g_sar)
SKARN_CLIENT_RECOVERY(sar, g_sar)

namespace {

constinit ServiceClient g_sar({
    .client_type = MODEM_API_SAR,
    .service = [] { return sar_get_service_object_internal_v01(1, 15, 6); },
    .indication = sar_client_unsol_ind_cb,
    .service_down = sar_client_service_down_event,
    .service_up = sar_client_service_up_event,
    .connect_name = "sar_client_init_client_handles",
    .suspend_name = "sar_client_release_qmi_client_thread",
    .after_attempt = nullptr,
    .after_connect = nullptr,
    .handle_indication = nullptr,
});

}  // namespace
