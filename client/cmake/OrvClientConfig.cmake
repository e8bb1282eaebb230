# OrvClient::orvclient: the library that drives the OrvPlayer service. C++20.
include(${CMAKE_CURRENT_LIST_DIR}/OrvClientTargets.cmake)
