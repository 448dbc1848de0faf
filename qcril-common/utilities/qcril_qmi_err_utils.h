// What a QMI exchange comes to for the radio layer.
#pragma once

#include "qmi_message.h"

// `transport_code` is the QMI library's result of the send. 0 when the exchange succeeded: sent (or
// the service went away meanwhile, where the response decides), and the response is null or reports
// success or one of the errors "none" and "no effect". Else an error number that is not 0.
int qcril_qmi_util_convert_qmi_response_codes_to_ril_result(int transport_code,
                                                            const qmi_response_type_v01* response);
