#include "MolvaneHelper/HelperMain.hpp"

int main() { return molvane::helperMain(); }
