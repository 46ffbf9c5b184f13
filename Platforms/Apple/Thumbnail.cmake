# The saver's thumbnail for System Settings from a world's poster, with the
# system's own image tool: scaled to cover WIDTH×HEIGHT pixels, keeping the
# poster's shape, then cropped to that size around the centre.
#   cmake -DPOSTER=poster.png -DWIDTH=180 -DHEIGHT=116 -DOUTPUT=thumbnail@2x.png -P Thumbnail.cmake
find_program(SIPS sips REQUIRED)
execute_process(COMMAND ${SIPS} -g pixelWidth -g pixelHeight ${POSTER} OUTPUT_VARIABLE info RESULT_VARIABLE failed)
if(failed OR NOT info MATCHES "pixelWidth: ([0-9]+)" )
  message(FATAL_ERROR "cannot read the size of the poster ${POSTER}")
endif()
set(poster_width ${CMAKE_MATCH_1})
string(REGEX MATCH "pixelHeight: ([0-9]+)" _ "${info}")
set(poster_height ${CMAKE_MATCH_1})
if(NOT poster_width GREATER 0 OR NOT poster_height GREATER 0)
  message(FATAL_ERROR "the poster ${POSTER} states no size")
endif()
# Cover: the side that needs the larger scale decides; the other overflows.
math(EXPR width_if_height_fits "(${poster_width} * ${HEIGHT} + ${poster_height} - 1) / ${poster_height}")
if(width_if_height_fits GREATER_EQUAL WIDTH)
  set(resample --resampleHeight ${HEIGHT})
else()
  set(resample --resampleWidth ${WIDTH})
endif()
execute_process(COMMAND ${SIPS} -s format png ${resample} ${POSTER} --out ${OUTPUT} OUTPUT_QUIET RESULT_VARIABLE failed)
if(NOT failed)
  execute_process(COMMAND ${SIPS} --cropToHeightWidth ${HEIGHT} ${WIDTH} ${OUTPUT} OUTPUT_QUIET RESULT_VARIABLE failed)
endif()
if(failed)
  message(FATAL_ERROR "cannot make the thumbnail ${OUTPUT} from ${POSTER}")
endif()
