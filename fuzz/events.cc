// A file of events, played to a small switch.

#include "agent/player/EventPlayer.h"
#include "fuzz/Fuzz.h"
#include "fuzz/World.h"

FUZZ( events ) {
   Fuzz::VirtualWorld world;
   world.load( Fuzz::smallSwitch );
   world.agent.inputsRead();
   world.runOn();
   Velto::Ptr< QonAgent::EventPlayer > player;
   const bool good = Fuzz::accepted( [&] {
      player = QonAgent::EventPlayer::parse( world.agent, "events", input.rest(),
                                             []( const Fuzz::String & ) {} );
   } );
   if ( good ) {
      player->start();
      world.runOn();
   }
}
