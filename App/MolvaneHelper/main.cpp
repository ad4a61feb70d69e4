#include <cstdio>

#include "MolvaneHelper/HelperMain.hpp"

int main(int argc, char**) {
  if (argc > 1) {
    std::fputs("MolvaneHelper takes no arguments. The service manager starts it; molvanectl talks to it.\n",
               stderr);
    return 2;
  }
  return molvane::helperMain();
}
