// A file of routes.

#include "agent/fib/RouteFile.h"
#include "fuzz/Fuzz.h"
#include "fuzz/World.h"

FUZZ( routes ) {
   Fuzz::accepted(
         [&] { QonAgent::eachFibLine( "routes", input.rest(), []( QonAgent::FibLine && ) {} ); } );
}
