#pragma once

// Version of the orvo libraries, fixed at configure time from the project
// version so that the tool and the libraries it loads can be compared.
const char* OrvoHostVersion();
