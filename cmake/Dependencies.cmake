# Every library comes from Debian packages (scripts/install-deps.sh).
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets Network Multimedia SerialPort)
if(ZL_BUILD_TESTS)
    find_package(Qt6 6.4 REQUIRED COMPONENTS Test)
endif()
find_package(spdlog REQUIRED)
find_package(fmt REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(CODEC2 REQUIRED IMPORTED_TARGET codec2)
pkg_check_modules(OPUS REQUIRED IMPORTED_TARGET opus)
pkg_check_modules(UNICORN REQUIRED IMPORTED_TARGET unicorn)

# libgsm ships no pkg-config file.
find_path(GSM_INCLUDE_DIR gsm.h PATH_SUFFIXES gsm REQUIRED)
find_library(GSM_LIBRARY gsm REQUIRED)
add_library(zl_gsm INTERFACE)
target_include_directories(zl_gsm INTERFACE ${GSM_INCLUDE_DIR})
target_link_libraries(zl_gsm INTERFACE ${GSM_LIBRARY})
add_library(Gsm::gsm ALIAS zl_gsm)

# LADSPA is a header only (ladspa-sdk); plug-ins are opened at run time.
find_path(LADSPA_INCLUDE_DIR ladspa.h REQUIRED)
