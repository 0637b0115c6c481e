// Addresses of a network interface of this host, as answers to the commands that ask for them. Both
// take the interface's name from the command's parameter "interface" and answer ERROR, with a
// reason on standard error, when this host has no such interface or it has no such address.
#pragma once

#include <string>

#include "agent/CapiCommand.h"

namespace agent {

// sta_get_ip_config: "dhcp,0,ip,ADDRESS,mask,MASK", IPv4. This agent never asks for a lease.
std::string getIpConfig(const CapiCommand& command);

// sta_get_mac_address: "mac,xx:xx:xx:xx:xx:xx".
std::string getMacAddress(const CapiCommand& command);

}  // namespace agent
