# zal_compile_options(<target>): what the project asks of its own code. Warnings become errors only when ZAL_WERROR is
# set, which the presets do and a user's plain build does not.
function(zal_compile_options target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  target_compile_definitions(${target} PRIVATE $<$<BOOL:${ZAL_INVARIANTS}>:ZAL_INVARIANTS>)
  target_compile_options(
    ${target}
    PRIVATE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wundef
            -Wformat=2
            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
            $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
            $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
            $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
            $<$<BOOL:${ZAL_WERROR}>:-Werror>)
  if(ZAL_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${ZAL_SANITIZE} -fno-sanitize-recover=all
                                             -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${ZAL_SANITIZE})
  endif()
endfunction()
