#pragma once
// What the last file said of one kind of thing, so that the next one is a difference.
//
//    Configured< IntfId, Port > ports_;
//
//    configure( reader ): auto said = std::make_shared< Configured< IntfId, Port >::Said >();
//                         each row:  said->emplace_back( intf, port )
//                         reader.apply( [=, this] { ports_.become( *said, gone, is ); } )
//
// Invariants
// 1. Of what is said as before nothing happens: what became of it meanwhile stays.
// 2. What is not said any more goes before anything comes; the rest comes, or changes, in the order
//    of the file.
// 3. All of it is done, whatever raises; then the first exception passes.

#include <map>
#include <utility>
#include <vector>

#include "platform/Velto/Scope.h"

namespace QonAgent {

template< class K, class V >
class Configured {
 public:
   /** In the order of the file; of a key that is said twice the last one counts. */
   using Said = std::vector< std::pair< K, V > >;

   /** Calls `gone( key, former )` for what is said no more, then `is( key, value, former )` for what
       is new, with a null `former`, or other than before. */
   template< class Gone, class Is >
   void become( const Said & said, Gone gone, Is is ) {
      std::map< K, V > former;
      former.swap( held_ );
      for ( auto & [key, value] : said ) {
         held_.insert_or_assign( key, value );
      }
      Velto::FirstError error;
      for ( auto & [key, value] : former ) {
         if ( !held_.contains( key ) ) {
            error.run( [&] { gone( key, value ); } );
         }
      }
      for ( auto & [key, value] : said ) {
         auto was = former.find( key );
         const V * before = was == former.end() ? nullptr : &was->second;
         const bool counts = held_.at( key ) == value;
         if ( counts && !( before && *before == value ) ) {
            error.run( [&] { is( key, value, before ); } );
         }
      }
      error.pass();
   }

   const std::map< K, V > & held() const { return held_; }

 private:
   std::map< K, V > held_;
};

} // namespace QonAgent
