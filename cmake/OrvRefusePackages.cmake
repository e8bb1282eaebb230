# Run by cpack where the build has libfdk-aac.
message(FATAL_ERROR "this build uses libfdk-aac, which is not free: make the packages by "
    "scripts/package, or configure with -DORV_WITH_FDK_AAC=OFF (or -DORV_PACKAGE_FDK_AAC=ON for "
    "packages that are not given away)")
