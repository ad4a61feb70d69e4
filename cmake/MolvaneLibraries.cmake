# How the libraries that the daemon needs are linked. It is started for a call, and finding four libraries takes longer
# than answering that call, so by default their code is in the program, as far as the system has it in that form. A
# system that updates its libraries by themselves turns this off.
option(MOLVANE_STATIC_LIBRARIES "Link OpenSSL, expat and libuuid statically where they are to be had so" ON)

set(OPENSSL_USE_STATIC_LIBS ${MOLVANE_STATIC_LIBRARIES})
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)

if(MOLVANE_STATIC_LIBRARIES)
  find_library(EXPAT_LIBRARY NAMES libexpat.a expat)
  find_library(MOLVANE_UUID_LIBRARY NAMES libuuid.a uuid REQUIRED)
else()
  find_library(MOLVANE_UUID_LIBRARY NAMES uuid REQUIRED)
endif()
find_package(EXPAT REQUIRED)
