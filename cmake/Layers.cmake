# SPDX-License-Identifier: MIT
# Layers: each folder of the library and of the simulator is a layer, and
# code names a layer's headers by folder ("protocol/Frames.h"). A target sees
# a layer's headers only when it links that layer: each layer exposes a
# directory of its own in the build tree that holds nothing but a link to
# its folder, so an include of a layer that is not linked fails to build.
# The exported headers (include/) are exposed the same way, each to the
# layer that implements it, so a lower layer cannot include Client.h.

# tetherhost_expose_folders(<target> <PUBLIC|PRIVATE|INTERFACE> <folder>...)
function(tetherhost_expose_folders target scope)
  foreach(folder IN LISTS ARGN)
    set(root ${PROJECT_BINARY_DIR}/layers/${folder})
    if(NOT EXISTS ${root}/${folder})
      file(MAKE_DIRECTORY ${root})
      file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
    endif()
    target_include_directories(${target} ${scope} $<BUILD_INTERFACE:${root}>)
  endforeach()
endfunction()

# tetherhost_expose_exported(<target> <scope> <name> <header>...): the named
# headers of include/, in a directory of their own called <name>.
function(tetherhost_expose_exported target scope name)
  set(root ${PROJECT_BINARY_DIR}/layers/exported-${name})
  file(MAKE_DIRECTORY ${root})
  foreach(header IN LISTS ARGN)
    if(NOT EXISTS ${root}/${header})
      file(CREATE_LINK ${PROJECT_SOURCE_DIR}/include/${header} ${root}/${header} SYMBOLIC)
    endif()
  endforeach()
  target_include_directories(${target} ${scope} $<BUILD_INTERFACE:${root}>)
endfunction()
