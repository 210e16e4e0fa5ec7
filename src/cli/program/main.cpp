#include <cstdio>
#include <new>

#include "cli/tallowinctl.h"

int main(int argc, char** argv) {
  try {
    return tallowin::tallowinctl({argv, argv + argc}, std::make_unique<tallowin::Host>());
  } catch (const std::bad_alloc&) {
    std::fputs("tallowinctl: There is not enough memory; end other programs and try again.\n",
               stderr);
    return 1;
  }
}
