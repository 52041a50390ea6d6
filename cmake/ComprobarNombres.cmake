# Run at build time by the target presupuestos_nombres: a class, struct or
# enumeration of the project's namespaces is defined in one file only. Two
# types of one name in two files break the one-definition rule in every
# program that links both (their implicit copy and destroy functions share
# mangled names, whatever their layouts), and neither compiler nor linker
# says so. Types in unnamed namespaces are the file's own and are passed by.
#   cmake -DRAICES="src;tests/support" -DSELLO=nombres.sello -P ComprobarNombres.cmake
cmake_minimum_required(VERSION 3.22)
set(errores "")
set(nombres "")
foreach(raiz IN LISTS RAICES)
  file(GLOB_RECURSE ficheros ${raiz}/*.h ${raiz}/*.cpp)
  foreach(fichero IN LISTS ficheros)
    file(STRINGS ${fichero} lineas)
    set(anonimo 0)
    foreach(linea IN LISTS lineas)
      if(linea MATCHES "^namespace {")
        set(anonimo 1)
      elseif(anonimo AND linea MATCHES "^} // namespace$")
        set(anonimo 0)
      elseif(NOT anonimo AND linea MATCHES "^(class|struct|union|enum class|enum) +([A-Za-z_][A-Za-z0-9_]*)([ {][^;]*|:[^:;][^;]*)?$")
        set(nombre ${CMAKE_MATCH_2})
        string(MAKE_C_IDENTIFIER "${nombre}" id)
        file(RELATIVE_PATH ruta ${CMAKE_CURRENT_LIST_DIR}/.. ${fichero})
        if(DEFINED donde_${id} AND NOT donde_${id} STREQUAL ruta)
          string(APPEND errores "  ${nombre}: ${donde_${id}} and ${ruta}\n")
        else()
          set(donde_${id} ${ruta})
        endif()
      endif()
    endforeach()
  endforeach()
endforeach()
if(errores)
  message(FATAL_ERROR "Types of one name defined in two files:\n${errores}")
endif()
file(TOUCH ${SELLO})
