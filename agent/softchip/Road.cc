#include "agent/softchip/Road.h"

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"

namespace SoftChip {

namespace {

/** The way of the copy to one target; it leaves if nothing is in the way. */
void
goTo( const Chip & chip, const Travel & travel, IntfId target, Passage & passage ) {
   Way way = { target, { target, {} }, {} };
   for ( auto & stage : portStages ) {
      const Verdict verdict = stage.pass( chip, travel, way );
      if ( !verdict.what.empty() ) {
         passage.steps.push_back( { stage.name, target.stringValue() + ": " + verdict.what } );
      }
      if ( !verdict.goesOn ) {
         return;
      }
   }
   passage.copies.push_back( way.copy );
   passage.copies.insert( passage.copies.end(), way.mirrored.begin(), way.mirrored.end() );
}

} // namespace

Passage
Chip::forward( const Frame & frame ) const {
   Passage passage;
   Travel travel = { frame, frame.port, frame.vlan, false, {}, {} };
   bool goesOn = true;
   for ( auto stage = std::begin( stages ); goesOn && stage != std::end( stages ); ++stage ) {
      const Verdict verdict = stage->pass( *this, travel );
      if ( !verdict.what.empty() ) {
         passage.steps.push_back( { stage->name, verdict.what } );
      }
      goesOn = verdict.goesOn;
   }
   passage.copies = travel.mirrored; // they leave, whatever becomes of the frame
   for ( IntfId target : goesOn ? travel.targets : std::vector< IntfId >() ) {
      goTo( *this, travel, target, passage );
   }
   return passage;
}

} // namespace SoftChip
