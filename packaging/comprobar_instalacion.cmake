# Installs the build into a folder of its own and checks that the program,
# its .xls reader, the menu entry and the icon land where desktops look.
#   cmake -DBUILD=<build dir> -DDESTINO=<empty folder> -P comprobar_instalacion.cmake
file(REMOVE_RECURSE "${DESTINO}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${DESTINO}" RESULT_VARIABLE r OUTPUT_QUIET)
if(NOT r EQUAL 0)
  message(FATAL_ERROR "cmake --install ha fallado (${r})")
endif()
foreach(f bin/presupuestos bin/presupuestos_lector_xls share/applications/presupuestos.desktop
          share/icons/hicolor/scalable/apps/presupuestos.svg)
  if(NOT EXISTS "${DESTINO}/${f}")
    message(FATAL_ERROR "falta ${f} en la instalación")
  endif()
endforeach()
file(STRINGS "${DESTINO}/share/applications/presupuestos.desktop" exec REGEX "^(Exec|Icon)=")
if(NOT exec STREQUAL "Exec=presupuestos;Icon=presupuestos")
  message(FATAL_ERROR "la entrada del menú no abre el programa con su icono: ${exec}")
endif()
file(REMOVE_RECURSE "${DESTINO}")
