# The sources of this host.
set(host_sources
  Devices/linux/BlockDevice.cpp
  Devices/linux/BusPath.cpp
  Devices/linux/MountedDevices.cpp
  Devices/linux/SysfsDeviceFacts.cpp
  Devices/linux/SysfsText.cpp)
set(host_tests
  Devices/linux/SysfsDeviceFactsTest.cpp)
