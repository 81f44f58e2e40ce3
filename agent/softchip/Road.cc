#include "agent/softchip/Road.h"

#include <algorithm>
#include <iterator>

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"

namespace SoftChip {

String
shown( const Tags & tags ) {
   return tags.outer.isNone() ? "without a tag"
          : tags.inner.isNone()
                ? "with tag " + tags.outer.stringValue()
                : "with tags " + tags.outer.stringValue() + " and " + tags.inner.stringValue();
}

namespace {

/** The way of the copy to one target; false: something is in the way. */
bool
goTo( const Chip & chip, const Travel & travel, Way & way, Passage & passage ) {
   for ( auto & stage : portStages ) {
      const Verdict verdict = stage.pass( chip, travel, way );
      if ( !verdict.what.empty() ) {
         passage.steps.push_back( { stage.name, way.target.stringValue() + ": " + verdict.what } );
      }
      if ( !verdict.goesOn ) {
         return false;
      }
   }
   return true;
}

} // namespace

Passage
Chip::forward( const Frame & frame ) const {
   Passage passage;
   Travel travel = { frame, frame.port, frame.tags, false, {}, {} };
   bool goesOn = true;
   for ( auto stage = std::begin( stages ); goesOn && stage != std::end( stages ); ++stage ) {
      const Verdict verdict = stage->pass( *this, travel );
      if ( !verdict.what.empty() ) {
         passage.steps.push_back( { stage->name, verdict.what } );
      }
      goesOn = verdict.goesOn;
   }
   passage.copies = std::move( travel.aside );
   for ( IntfId target : goesOn ? travel.targets : std::vector< IntfId >() ) {
      Way way = { target, { target, {}, {} }, {} };
      if ( goTo( *this, travel, way, passage ) ) {
         passage.copies.push_back( std::move( way.copy ) );
      }
      std::move( way.aside.begin(), way.aside.end(), std::back_inserter( passage.copies ) );
   }
   return passage;
}

} // namespace SoftChip
