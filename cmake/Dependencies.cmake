# The third-party libraries the engine links, gathered in one interface
# target so that every part of the build sees the same set.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libswresample libavutil)
pkg_check_modules(SOUNDTOUCH REQUIRED IMPORTED_TARGET soundtouch)
pkg_check_modules(PORTAUDIO REQUIRED IMPORTED_TARGET portaudio-2.0)
find_path(LAME_INCLUDE_DIR lame/lame.h REQUIRED)
find_library(LAME_LIBRARY mp3lame REQUIRED)

add_library(wavoryx_deps INTERFACE)
target_link_libraries(wavoryx_deps INTERFACE
  PkgConfig::FFMPEG PkgConfig::SOUNDTOUCH PkgConfig::PORTAUDIO
  ${LAME_LIBRARY} Threads::Threads m)
target_include_directories(wavoryx_deps INTERFACE ${LAME_INCLUDE_DIR})

# Requires.private of the pkg-config file, for static consumers.
set(WAVORYX_PC_REQUIRES_PRIVATE "libavformat libavcodec libswresample libavutil soundtouch portaudio-2.0")
set(WAVORYX_PC_LIBS_PRIVATE "-lmp3lame -lpthread -lm")
