#include "modem_api/nas/nas_0_client.h"

#include "modem_api/nas/nas_client.h"
#include "modem_api/service_client_functions.h"

SKARN_NAS_CLIENT(0)
