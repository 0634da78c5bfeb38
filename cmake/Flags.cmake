# Flags of our own sources, as interface targets that are linked privately: nothing leaks into a host's build.
#   VOALGO_ARCH      instruction set; the kernels of platform/simd.h need AVX2, without it their scalar twins run
#   VOALGO_SANITIZE  sanitizers
#   VOALGO_WERROR    warnings are errors
# Two promises rest on these flags. Same input, same bits: no contraction, for a contracted multiply-add rounds once
# instead of twice. Same sources, same library, whatever the folders: paths are recorded relative to the source folder,
# those of generated files as build/... (a debugger finds the sources when started in the source folder).
add_library(voalgo_flags INTERFACE)
target_compile_features(voalgo_flags INTERFACE cxx_std_20)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(MSVC)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "MSVC" AND MSVC_VERSION LESS 1930)
        message(FATAL_ERROR "Visual Studio 2022 or newer is needed: older compilers contract multiply-adds under /fp:precise")
    endif()
    # /W4 is -Wall -Wextra -Wshadow; the rest of -Wconversion and of member order comes by number. Off: exported classes
    # with standard members (4251, 4275), padding that alignas asks for (4324), constant conditions in templates (4127).
    target_compile_options(voalgo_flags INTERFACE
        /W4 /w14242 /w14254 /w14287 /w14296 /w15038 /wd4127 /wd4251 /wd4275 /wd4324
        $<$<BOOL:${VOALGO_WERROR}>:/WX>
        /permissive- /utf-8 /Zc:__cplusplus /fp:precise)
    target_compile_definitions(voalgo_flags INTERFACE NOMINMAX _CRT_SECURE_NO_WARNINGS)
    set(arch_x86-64-v3 AVX2)
    set(arch_x86-64-v4 AVX512)
    if(DEFINED arch_${VOALGO_ARCH})
        target_compile_options(voalgo_flags INTERFACE /arch:${arch_${VOALGO_ARCH}})
    elseif(VOALGO_ARCH AND NOT VOALGO_ARCH MATCHES "^x86-64(-v2)?$")
        target_compile_options(voalgo_flags INTERFACE /arch:${VOALGO_ARCH})
    endif()
    if(VOALGO_SANITIZE)
        target_compile_options(voalgo_flags INTERFACE /fsanitize=${VOALGO_SANITIZE} /Oy-)
        target_link_options(voalgo_flags INTERFACE /INCREMENTAL:NO)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_compile_options(voalgo_flags INTERFACE
            -Wconversion -Wshadow /clang:-ffp-contract=off
            /clang:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/= /clang:-ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
    else()
        cmake_path(NATIVE_PATH PROJECT_SOURCE_DIR source_dir)
        target_compile_options(voalgo_flags INTERFACE "/d1trimfile:${source_dir}\\" /Brepro)
    endif()
    target_link_options(voalgo_flags INTERFACE /Brepro /PDBALTPATH:%_PDB%)
else()
    target_compile_options(voalgo_flags INTERFACE
        -Wall -Wextra -Wconversion -Wshadow
        $<$<BOOL:${VOALGO_WERROR}>:-Werror>
        -ffp-contract=off
        -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
    if(VOALGO_ARCH)
        target_compile_options(voalgo_flags INTERFACE -march=${VOALGO_ARCH})
    endif()
    if(VOALGO_SANITIZE)
        target_compile_options(voalgo_flags INTERFACE
            -fsanitize=${VOALGO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(voalgo_flags INTERFACE -fsanitize=${VOALGO_SANITIZE})
    endif()
endif()
