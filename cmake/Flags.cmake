# Flags of our own sources, as interface targets that are linked privately: nothing leaks into a host's build.
add_library(voalgo_flags INTERFACE)
target_compile_features(voalgo_flags INTERFACE cxx_std_20)

if(MSVC)
    target_compile_options(voalgo_flags INTERFACE /W4 /permissive- /utf-8 /fp:precise $<$<BOOL:${VOALGO_WERROR}>:/WX>)
    return()
endif()

target_compile_options(voalgo_flags INTERFACE
    -Wall -Wextra -Wconversion -Wshadow
    $<$<BOOL:${VOALGO_WERROR}>:-Werror>
    # A contracted multiply-add rounds once instead of twice: results would depend on the compiler's taste.
    -ffp-contract=off)
if(VOALGO_ARCH)
    target_compile_options(voalgo_flags INTERFACE -march=${VOALGO_ARCH})
endif()
if(VOALGO_SANITIZE)
    target_compile_options(voalgo_flags INTERFACE
        -fsanitize=${VOALGO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(voalgo_flags INTERFACE -fsanitize=${VOALGO_SANITIZE})
endif()
