#include "utilities/velmor_log.h"
#include "velmor_extend_cmn.h"

void velmor_qmi_client_common_empty_unsol_ind_cb(qmi_client_type, unsigned int msg_id, void*,
                                                 unsigned int, void*) {
  VELMOR_LOG_DEBUG("msg_id %d", static_cast<int>(msg_id));
}

void velmor_qmi_client_unsol_ind_cb(qmi_client_type, unsigned int msg_id, void*, unsigned int,
                                    void*) {
  VELMOR_LOG_DEBUG("msg_id %d", static_cast<int>(msg_id));
}

void velmor_qmi_client_error_cb(qmi_client_type, qmi_client_error_type error, void*) {
  VELMOR_LOG_DEBUG("QMI error callback %d", error);
}
