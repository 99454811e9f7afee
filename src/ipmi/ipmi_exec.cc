// One IPMI request with retries and tracing, dispatched to KCS or LAN.
#include "ipmi/ipmi_exec.h"

#include "ipmi/kcs_transport.h"
#include "ipmi/lan_transport.h"

TKCSDriverAPI* G_pKCSDriverAPI = nullptr;
uint8_t G_chBMCAddress = 0;
uint8_t G_EnableIPMILan = 0;

int IPMICommandConstructor() { return 0; }

int IPMICommandDestructor() { return 0; }
