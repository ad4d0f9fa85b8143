# Installs the built project into a prefix of its own, moves that, and builds and runs consumer.cpp against it:
# by find_package(Lorvale) and by pkg-config.  Run by ctest with
#   cmake -DBUILD=<build folder> -DSOURCE=<this folder> -DWORK=<scratch> -DCXX=<compiler> -P PackageTest.cmake
cmake_policy(VERSION 3.25)

# run(RESULT command...): stops with everything that was printed when the command fails.
function(run result)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " line "${ARGN}")
    message(FATAL_ERROR "${line}\nended with ${status}\n${output}${errors}")
  endif()
  string(STRIP "${output}" output)
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

function(expect_version text)
  if(NOT text MATCHES "^Orrin Lorvale v[0-9]+$")
    message(FATAL_ERROR "the program printed \"${text}\"")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
run(ignored ${CMAKE_COMMAND} --build ${BUILD})
run(ignored ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/first)
file(RENAME ${WORK}/first ${WORK}/prefix)  # an installed copy may be moved

# Whoever has the headers has all of them.
file(GLOB_RECURSE installed RELATIVE ${WORK}/prefix/include ${WORK}/prefix/include/*.h)
file(GLOB_RECURSE wanted RELATIVE ${SOURCE}/../../include ${SOURCE}/../../include/*.h)
if(NOT installed STREQUAL wanted)
  message(FATAL_ERROR "installed: ${installed}\nwanted: ${wanted}")
endif()

run(ignored ${CMAKE_COMMAND} -G Ninja -S ${SOURCE} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${WORK}/prefix
    -DCMAKE_CXX_COMPILER=${CXX})
run(ignored ${CMAKE_COMMAND} --build ${WORK}/build)
run(printed ${WORK}/build/consumer)
expect_version("${printed}")

# The console host is installed with the library, its manual page and its completions.
run(printed ${WORK}/prefix/bin/mailhost --version)
if(NOT printed MATCHES "Orrin Lorvale v[0-9]+")
  message(FATAL_ERROR "mailhost printed \"${printed}\"")
endif()
foreach(file man/man1/mailhost.1 bash-completion/completions/mailhost zsh/site-functions/_mailhost)
  file(STRINGS ${WORK}/prefix/share/${file} lines REGEX "received")
  if(NOT lines)
    message(FATAL_ERROR "${file} does not know the sort orders of \"list\"")
  endif()
endforeach()

# It, too, is a program that needs no more than an installed copy.
run(ignored ${CMAKE_COMMAND} -G Ninja -S ${SOURCE}/../../examples/mailhost -B ${WORK}/mailhost
    -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_CXX_COMPILER=${CXX})

file(GLOB_RECURSE description ${WORK}/prefix/lorvale.pc)
get_filename_component(folder "${description}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${folder})
run(flags pkg-config --cflags --libs lorvale)
run(libraries pkg-config --variable=libdir lorvale)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(ignored ${CXX} ${SOURCE}/consumer.cpp ${flags} -Wl,-rpath,${libraries} -o ${WORK}/consumer)
run(printed ${WORK}/consumer)
expect_version("${printed}")
file(REMOVE_RECURSE ${WORK})
