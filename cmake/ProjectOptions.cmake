# What every target is compiled with. Link `mgmt_options` privately.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g -DNDEBUG")

find_program(CCACHE ccache)
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

find_package(Threads REQUIRED)

add_library(mgmt_options INTERFACE)
target_compile_options(mgmt_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Werror)
target_include_directories(mgmt_options INTERFACE ${PROJECT_SOURCE_DIR})
target_link_libraries(mgmt_options INTERFACE Threads::Threads)

set(MGMT_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
if(MGMT_SANITIZE)
    add_compile_options(-fsanitize=${MGMT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -O1)
    add_link_options(-fsanitize=${MGMT_SANITIZE})
    # What the sanitizers insert makes GCC see uninitialised variables where there are none.
    add_compile_options(-Wno-maybe-uninitialized)
    if(MGMT_SANITIZE MATCHES "thread")
        add_compile_options(-Wno-tsan)
    endif()
endif()
