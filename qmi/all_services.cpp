#include "all_services.h"

#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_service.h"
#include "pdc_service.h"
#include "uim_service.h"
#include "velmor_extend_service.h"

std::span<const qmi_idl_service_object_type> all_services() {
  static const qmi_idl_service_object_type services[] = {
      velmor_extend_get_service_object_internal_v01(1, 1, 6),
      uim_get_service_object_internal_v01(1, 109, 6),
      nas_get_service_object_internal_v01(1, 397, 6),
      sar_get_service_object_internal_v01(1, 15, 6),
      pdc_get_service_object_internal_v01(1, 16, 6),
      vs_get_service_object_internal_v01(1, 2, 6),
  };
  return services;
}
