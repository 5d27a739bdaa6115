# The bytes of files as C++: cmake -DOUTPUT=a.cpp -DHEADER=a.h -DNAMES=kA;kB -DFILES=a;b -P embed.cmake
set(code "#include \"${HEADER}\"\n\nnamespace awbcal {\n\n")
foreach(name file IN ZIP_LISTS NAMES FILES)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND code "static constexpr char ${name}Bytes[] = {${bytes}};\n"
    "constinit const std::string_view ${name}(${name}Bytes, sizeof ${name}Bytes);\n\n")
endforeach()
file(WRITE ${OUTPUT} "${code}}  // namespace awbcal\n")
