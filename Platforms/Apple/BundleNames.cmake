# The bundle's names, all from one version: every Objective-C class of the
# bundle carries HUSHMEADOWS_CLASS_SUFFIX (the version with "_" for "."), and
# the Info.plist names the principal class with the same suffix. The
# Objective-C runtime has one table of class names per process and the host
# process outlives runs, so a new version must bring new names to run at all,
# and two installed versions must not share one.
#
# Included by the bundle's CMakeLists; also run as a script, where no Mac
# builds the bundle, by tools/check-macos-host.sh:
#   cmake -DVERSION=1.0.0 -DDEPLOYMENT_TARGET=14.0 -DOUTPUT_DIR=dir -P BundleNames.cmake

set(HUSHMEADOWS_BUNDLE_NAMES_DIR ${CMAKE_CURRENT_LIST_DIR})

# Writes OUTPUT_DIR/Info.plist and OUTPUT_DIR/Platforms/Apple/BundleClassNames.h.
function(hushmeadows_bundle_names version deployment_target output_dir)
  if(NOT version MATCHES "^[0-9]+(\\.[0-9]+)*$")
    message(FATAL_ERROR "the bundle version \"${version}\" is not dot-separated numbers")
  endif()
  string(REPLACE "." "_" HUSHMEADOWS_CLASS_SUFFIX "${version}")
  set(HUSHMEADOWS_PRINCIPAL_CLASS "HMWHushmeadowsScreenSaverView_${HUSHMEADOWS_CLASS_SUFFIX}")
  set(HUSHMEADOWS_BUNDLE_VERSION "${version}")
  set(HUSHMEADOWS_DEPLOYMENT_TARGET "${deployment_target}")
  configure_file(${HUSHMEADOWS_BUNDLE_NAMES_DIR}/Info.plist.in ${output_dir}/Info.plist @ONLY)
  configure_file(${HUSHMEADOWS_BUNDLE_NAMES_DIR}/BundleClassNames.h.in ${output_dir}/Platforms/Apple/BundleClassNames.h @ONLY)
  set(HUSHMEADOWS_PRINCIPAL_CLASS "${HUSHMEADOWS_PRINCIPAL_CLASS}" PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  hushmeadows_bundle_names("${VERSION}" "${DEPLOYMENT_TARGET}" "${OUTPUT_DIR}")
endif()
