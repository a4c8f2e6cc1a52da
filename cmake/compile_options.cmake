# How every target is compiled and every program linked.

# For every target: standard C++17, all warnings, hardened code. Protected stacks need the library
# corekit, which defines the guard for MinGW.
function(uactask_compile_options target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_definitions(${target} PRIVATE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN
    _WIN32_WINNT=0x0602) # Windows 8 and later
  if(MSVC)
    target_compile_definitions(${target} PRIVATE _CRT_SECURE_NO_WARNINGS)
    # C4702 (unreachable code) is off: it also fires in the templates of other libraries.
    target_compile_options(${target} PRIVATE /W4 /wd4702 /permissive- /utf-8 /EHsc /GS /guard:cf /Zc:__cplusplus
      # Tasks have no virtual destructor: their owner destroys them as their own class.
      $<$<CXX_COMPILER_ID:Clang>:-Wno-delete-non-abstract-non-virtual-dtor>
      $<$<BOOL:${UACTASK_WARNINGS_AS_ERRORS}>:/WX>)
  else()
    # <windows.h> includes the intrinsics of every processor, which take three quarters of its time. Nothing here uses
    # them, so their header is declared as included.
    target_compile_definitions(${target} PRIVATE _X86INTRIN_H_INCLUDED)
    file(REAL_PATH ${Boost_INCLUDE_DIRS} boost)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      -fstack-protector-strong -ffunction-sections -fdata-sections
      $<$<BOOL:${UACTASK_WARNINGS_AS_ERRORS}>:-Werror>
      # Gives the same bytes wherever this is built. The last prefix that matches wins. Boost has two, because GCC
      # resolves symbolic links.
      -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build
      -ffile-prefix-map=${Boost_INCLUDE_DIRS}=boost -ffile-prefix-map=${boost}=boost)
  endif()
endfunction()

# For every program: a single file that needs system DLLs only, with enough stack for the deepest document even without
# optimisation.
function(uactask_executable_options target)
  uactask_compile_options(${target})
  if(MSVC)
    target_link_options(${target} PRIVATE
      /guard:cf /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /DEPENDENTLOADFLAG:0x800 /STACK:8388608)
  else()
    target_link_options(${target} PRIVATE -static -Wl,--gc-sections -Wl,--stack,8388608
      -Wl,--dynamicbase,--high-entropy-va,--nxcompat -Wl,--no-insert-timestamp
      $<$<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:UACTASK_KEEPS_SYMBOLS>>>>:-s>)
  endif()
endfunction()

# For every target of which something ships: what a debugger needs for functions and lines. The rest would add a third to
# the time that compiling takes; a debug build has it.
function(uactask_debug_symbols target)
  target_compile_options(${target} PRIVATE $<$<AND:$<BOOL:${MINGW}>,$<CONFIG:Release>>:-g1>)
endfunction()

# For every program that ships: puts the debug symbols into a file beside the program and its name into the program.
function(uactask_separate_symbols target)
  set_property(TARGET ${target} PROPERTY UACTASK_KEEPS_SYMBOLS ON)
  if(MINGW AND CMAKE_BUILD_TYPE STREQUAL "Release")
    set(symbols $<TARGET_FILE_DIR:${target}>/${target}.debug)
    # These tools write the current time into their output unless they are given another.
    set(fixed_time ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
      COMMAND ${fixed_time} ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${symbols}
      COMMAND ${fixed_time} ${CMAKE_STRIP} $<TARGET_FILE:${target}>
      COMMAND ${fixed_time} ${CMAKE_OBJCOPY} --add-gnu-debuglink=${symbols} $<TARGET_FILE:${target}>)
  endif()
endfunction()
