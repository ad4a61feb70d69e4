# The sources of this host.
set(host_sources
  linux/ActivationSocket.cpp
  linux/ErrnoNames.cpp
  linux/MachineID.cpp
  linux/Socket.cpp
  linux/WakeUp.cpp)
