#ifndef OSTREL_HOST_LIBRARY_QUERIES_H
#define OSTREL_HOST_LIBRARY_QUERIES_H

#include "query.h"

namespace ostrel::host {

// Every query of the library, in the order of --help.
Queries LibraryQueries();

}  // namespace ostrel::host

#endif
