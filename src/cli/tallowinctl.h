// The scripting front end as a function: main without the process around it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/host.h"

namespace tallowin {

// `words` are the arguments of main, the program's name first. The exit status is returned.
int tallowinctl(const std::vector<std::string>& words, std::unique_ptr<Host> host);

}  // namespace tallowin
