# Test helpers shared by every folder.

# Builds GoogleTest from Debian's sources (cross-built for Windows, natively otherwise).
macro(nwx_add_googletest)
    set(NWX_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources")
    set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
    add_subdirectory(${NWX_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
endmacro()

# nwx_add_test(<name> SOURCES ... [LIBS ...] [ENVIRONMENT ...] [TIMEOUT s] [NO_MAIN])
# One ctest entry per executable. On Windows the executable runs under Wine (wine-run.sh, through
# run-gtest-under-wine.sh); natively it runs under ASan/UBSan.
function(nwx_add_test name)
    cmake_parse_arguments(T "NO_MAIN" "TIMEOUT" "SOURCES;LIBS;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    if(T_NO_MAIN)
        target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock)
    else()
        target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest_main GTest::gmock)
    endif()
    if(WIN32)
        # Under Wine a dead test program may still exit 0: the runner also wants the summary.
        add_test(NAME ${name} COMMAND bash ${PROJECT_SOURCE_DIR}/cmake/run-gtest-under-wine.sh
                                      $<TARGET_FILE:${name}>)
    else()
        add_test(NAME ${name} COMMAND ${name})
    endif()
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT})
    if(T_ENVIRONMENT)
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "${T_ENVIRONMENT}")
    endif()
endfunction()

# nwx_add_fuzzer(<name> SOURCES ... [LIBS ...] [SECONDS n])
# Native only: a libFuzzer target that ctest runs for a bounded time under ASan/UBSan. When
# fuzz/corpus/<name>/ exists, a second entry, <name>_corpus, replays every kept input once, so
# that an input that once found a bug, or reached deep, keeps being checked. The target also
# joins `fuzzers` (all of them) and the list that `make fuzz` reads (fuzzers.txt in the build).
function(nwx_add_fuzzer name)
    cmake_parse_arguments(F "" "SECONDS" "SOURCES;LIBS" ${ARGN})
    if(WIN32 OR NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        return()
    endif()
    if(NOT F_SECONDS)
        set(F_SECONDS 20)
    endif()
    add_executable(${name} ${F_SOURCES})
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE ${F_LIBS})
    add_test(NAME ${name} COMMAND ${name} -max_total_time=${F_SECONDS} -rss_limit_mb=1024
             -print_final_stats=1)
    set_tests_properties(${name} PROPERTIES TIMEOUT 300)

    set(corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
    if(EXISTS ${corpus})
        # -runs=0: execute the inputs already in the directory, mutate nothing, write nothing.
        add_test(NAME ${name}_corpus COMMAND ${name} -runs=0 -rss_limit_mb=1024 -timeout=60
                 ${corpus})
        # The corpus is only read here; crash files of a failing replay go to the build tree.
        set_tests_properties(${name}_corpus PROPERTIES TIMEOUT 300 WORKING_DIRECTORY
                             ${CMAKE_CURRENT_BINARY_DIR})
    endif()
    if(NOT TARGET fuzzers)
        add_custom_target(fuzzers)
    endif()
    add_dependencies(fuzzers ${name})
    set_property(GLOBAL APPEND PROPERTY NWX_FUZZERS ${name})
endfunction()

# Writes <build>/fuzzers.txt, one "<name> <path of the executable>" line per fuzzer, for
# scripts/run-fuzzers.sh. Called once, after every fuzzer is declared.
function(nwx_write_fuzzer_list)
    get_property(names GLOBAL PROPERTY NWX_FUZZERS)
    if(NOT names)
        return()
    endif()
    set(lines "")
    foreach(name IN LISTS names)
        string(APPEND lines "${name} $<TARGET_FILE:${name}>\n")
    endforeach()
    file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/fuzzers.txt CONTENT "${lines}")
endfunction()

# Adds every sub-folder of the current folder that has a CMakeLists.txt ("support" first), so
# each area keeps its tests, benchmarks and fuzzers in a folder of its own.
function(nwx_add_area_subdirectories)
    file(GLOB areas LIST_DIRECTORIES true RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
         ${CMAKE_CURRENT_SOURCE_DIR}/*)
    list(SORT areas)
    list(REMOVE_ITEM areas support)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/support/CMakeLists.txt)
        add_subdirectory(support)
    endif()
    foreach(area IN LISTS areas)
        if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${area}/CMakeLists.txt)
            add_subdirectory(${area})
        endif()
    endforeach()
endfunction()
