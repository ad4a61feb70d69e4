# The sources of this host.
set(host_sources
  linux/Bundle.cpp
  linux/CmsCodeSigning.cpp
  linux/CmsMessage.cpp
  linux/CodeSigning.cpp
  linux/DiskClaim.cpp
  linux/FileIdentity.cpp
  linux/GrantingAttributes.cpp
  linux/ItemMove.cpp
  linux/KernelCopy.cpp
  linux/LoopDevices.cpp
  linux/MountTable.cpp
  linux/Mounts.cpp
  linux/OpenSsl.cpp
  linux/OpenSubfolder.cpp
  linux/PeerProcess.cpp
  linux/PlainFile.cpp
  linux/ProcessDirectories.cpp
  linux/ProcessExitWatch.cpp
  linux/RawDevice.cpp
  linux/RememberedChecks.cpp
  linux/RememberedChecksCoding.cpp
  linux/SignedCode.cpp
  linux/SpawnHost.cpp
  linux/StreamedFile.cpp
  linux/SyncFileSystem.cpp
  linux/UserRights.cpp)
set(host_tests
  linux/CmsCodeSigningPeerTest.cpp
  linux/CmsCodeSigningTest.cpp
  linux/MountsTest.cpp
  linux/RawDeviceTest.cpp
  linux/RememberedChecksTest.cpp
  linux/SignedCodeTest.cpp
  linux/StreamedFileTest.cpp)
set(host_test_links CodeSigningTesting)

# What the tests of the signatures need: a program to be checked, and the tools that sign it.
if(MOLVANE_BUILD_TESTS)
  add_executable(SigningPeer linux/testing/SigningPeer.cpp)
  target_link_libraries(SigningPeer PRIVATE MolvaneCompile)
  add_library(CodeSigningTesting STATIC linux/testing/CodeSigningTools.cpp)
  target_link_libraries(CodeSigningTesting PUBLIC PlatformTesting OpenSSL::Crypto)
  target_compile_definitions(CodeSigningTesting PUBLIC
    MOLVANE_SIGNING_PEER="$<TARGET_FILE:SigningPeer>"
    MOLVANE_SIGNING_TOOLS="${PROJECT_SOURCE_DIR}/macroot/signing")
  add_dependencies(CodeSigningTesting SigningPeer)
endif()
