/* The agent's headers stand alone, in C and (header_test.cpp) in C++. */
#include "miracast_sigma.h"
#include "wfd_discovery.h"

int headerTest(void);
int headerTest(void) { return g_wfd_session_id + (gWFDClient != 0) + sta_reset_default("x"); }
