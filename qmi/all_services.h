// The services of the modem that its clients know, for what deals with any of them.
#pragma once

#include <span>

#include "qmi_message.h"

std::span<const qmi_idl_service_object_type> all_services();
