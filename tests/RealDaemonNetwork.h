// The namespaces in which the tests of the real daemon run.
#pragma once

// Runs this program again, with its arguments, in namespaces of its own; returns in the program in
// there, and also where that is not permitted or only the tests' names are asked for.
void enterTestNetwork(int argc, char** argv);

// Why this process is not in such namespaces, or null.
const char* noTestNetwork();

// Everything of the namespaces that is a file lies here.
constexpr const char* kTestNetworkDirectory = "/run/real-daemon";
