// Carries one request to a remote BMC through ipmitool's "raw" command.
#include "ipmi/lan_transport.h"

uint8_t G_u8CipherValue = 0xFF;
