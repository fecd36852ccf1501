# What makes a mistake in memory harder to use: stack protectors, addresses drawn at random, no executable data. A test holds
# the built files against it.
#
# Products and lab are compiled with OSTREL_HARDENING. Linking is the same for every program, since the tests link their objects.
if(WIN32)
  set(OSTREL_HARDENING -fstack-protector-strong)
  add_link_options(-fstack-protector-strong
    LINKER:--dynamicbase,--high-entropy-va,--nxcompat,--enable-reloc-section)
endif()
