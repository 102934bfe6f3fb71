# Warnings on everything we compile; third-party headers come in as SYSTEM. They are errors only
# when TAVI_WERROR is on (the project's test command and CI turn it on): a distribution's newer
# compiler must never break a build over a warning it has just learnt.
add_library(tavi_options INTERFACE)
target_compile_options(tavi_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)
if(TAVI_WERROR)
    target_compile_options(tavi_options INTERFACE -Werror)
endif()
target_compile_definitions(tavi_options INTERFACE
    TAVI_VERSION="${PROJECT_VERSION}")

if(TAVI_SANITIZE)
    string(REPLACE ";" "," _tavi_sanitizers "${TAVI_SANITIZE}")
    target_compile_options(tavi_options INTERFACE
        -fsanitize=${_tavi_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(tavi_options INTERFACE -fsanitize=${_tavi_sanitizers})
endif()

if(TAVI_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "TAVI_FUZZ needs Clang (libFuzzer)")
    endif()
    # Everything is instrumented for coverage; only the fuzz targets link libFuzzer's main.
    target_compile_options(tavi_options INTERFACE -fsanitize=fuzzer-no-link,address,undefined)
    target_link_options(tavi_options INTERFACE -fsanitize=address,undefined)
endif()
