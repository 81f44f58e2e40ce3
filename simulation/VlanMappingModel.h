#pragma once
// Who owns each translation, by the configuration and the chip's answers alone: the laws of both
// generations written a second time, as plainly as they can be.
//
//    configuration: wishIs(), lagIs(), modeIs() ----.
//    the chip: refused(), removed() ----------------> owner of every key, what ports shall hold
//    the log: conflictHeard(), programmedHeard() ---> what must not be said, or not twice
//
// It is told of a change before the library is.

#include <map>
#include <optional>

#include "Qon/include/vlanmapping/VlanMappingRecords2.h"

namespace Sim {

using Velto::String;

class VlanMappingModel {
 public:
   using IntfId = Ulnet::IntfId;
   using Direction = Bridging::VlanMappingDirection;
   using Mapping = Bridging::VlanXlateMapping;
   using Mode = Bridging::SwitchportMode;
   static constexpr U32 sources = 3, nobody = 3;

   /** A translation of a configured interface. `native` only in the first generation, where such a
       key is one of its own. */
   struct Key {
      IntfId intf;
      Direction direction;
      U16 vlan;
      bool native;
      auto operator<=>( const Key & ) const = default;
      String text() const;
   };

   explicit VlanMappingModel( bool second ) : second_( second ) {}

   /** @name Configuration */
   /** @{ */
   void wishIs( const Key & key, U32 source, std::optional< Mapping > wish );
   /** All that the source wants of the interface goes, and what is remembered of it. */
   void wishesDel( IntfId intf, U32 source );
   void modeIs( IntfId intf, std::optional< Mode > mode );
   /** Null: of none. */
   void lagIs( IntfId port, IntfId lag );
   void pausedIs( bool paused );
   /** The state machines are starting: whoever wins then is not announced. */
   void startingIs( bool starting ) { starting_ = starting; }
   /** The state machines were made anew. `keeps( key )`: the owner can be found again. */
   template< class Keeps >
   void restart( Keeps && keeps ) {
      for ( auto & [key, claim] : claims_ ) {
         const U32 owner = claim.owner;
         const auto wishes = claim.wishes;
         const bool kept = keeps( key );
         claim = Claim();
         claim.wishes = wishes;
         claim.owner = kept ? owner : nobody;
      }
      settleAll( true );
   }
   /** @} */

   /** @name The chip, of a configured interface's key on a port */
   /** @{ */
   void asked( const Key & key, IntfId port );
   void refused( const Key & key, IntfId port, Mapping mapping );
   void removed( const Key & key, IntfId port );
   /** @} */

   /** @name The log; what is wrong with the message, or nothing */
   /** @{ */
   String conflictHeard( const Key & key, const String & requester, const String & owner );
   String programmedHeard( const Key & key, const String & winner );
   /** @} */

   /** @name At rest */
   /** @{ */
   /** What ought to have been said and was not. */
   String unsaid() const;
   using Port = std::tuple< Direction, IntfId, U16, bool >;
   /** What every port shall hold. */
   std::map< Port, Mapping > ports() const;
   /** Owners and their mappings, of keys that are owned. */
   std::map< Key, std::pair< U32, Mapping > > owners() const;
   IntfId rulerOf( IntfId port ) const;
   /** @} */

 private:
   struct Claim {
      std::array< std::optional< Mapping >, sources > wishes;
      U32 owner = nobody;
      bool pending = false; ///< the owner's success is to be announced
      /** What ports refused, and whose it was: given up when it is taken from the port. */
      std::map< IntfId, std::pair< U32, Mapping > > refused;
      std::optional< Mapping > givenUp[sources];
      std::optional< std::pair< U32, Mapping > > told[sources]; ///< conflicts
   };

   bool may( const Key & key, const Claim & claim, U32 source ) const;
   void settle( const Key & key, Claim & claim, U32 former, bool lost, bool silent );
   void settleAll( bool silent );
   bool active( IntfId intf, U32 source ) const;
   U32 sourceOf( const String & name ) const;
   bool leads( IntfId intf ) const;
   void membersChanged( IntfId lag );

   const bool second_;
   bool paused_ = false, starting_ = false;
   std::map< Key, Claim > claims_;
   std::map< IntfId, Mode > modes_;
   std::map< IntfId, IntfId > lagOf_;
   std::map< IntfId, IntfId > lagOfBefore_; ///< the pause
};

} // namespace Sim
