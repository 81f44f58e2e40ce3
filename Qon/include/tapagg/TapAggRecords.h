#pragma once
// What tap aggregation knows of groups: those of the hardware, who is in them, and who wants them.

#include "Qon/include/framework/QonPortLists.h"
#include "Qon/include/framework/Reconcile.h"
#include "platform/types/TapAggConfig.h"

namespace Qon {

using Velto::String;

/** What a port is. One can be both. */
enum class TapAggRole : U8 { tap, tool };
KIV_ENUM( TapAggRole, tap, tool )

/** A class of a policy map. */
class TapAggClassKey {
   String policyMap_;
   String classMap_;
   KIV_VALUE( Qon, TapAggClassKey, policyMap, classMap )
};

/** A group of the hardware. */
class AllocatedGroupInfo : public Kiv::Entity {
   KIV_BODY( AllocatedGroupInfo, Kiv::Entity )
   KIV_ATTR( String, groupOwner, "" ) // the name that it was allocated for
   // The interfaces that are in it, or have been since the last clean-up, with the ports that they
   // lead to: themselves, or the members of a port-channel.
   KIV_MAP( Ulnet::IntfId, QonPortList, intfList )
 public:
   using Ptr = Velto::Ptr< AllocatedGroupInfo >;
   explicit AllocatedGroupInfo( const U32 & groupId ) : groupId_( groupId ) {}
   U32 groupId() const { return groupId_; }

 private:
   const U32 groupId_;
};

/** The names of the groups of which an interface is in the list. */
class AllocatedPortInfo : public Kiv::Entity {
   KIV_BODY( AllocatedPortInfo, Kiv::Entity )
   KIV_SET( String, group )
 public:
   explicit AllocatedPortInfo( const Ulnet::IntfId & intf ) : intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

/** Who uses which group, by name. A name that joins others ("a,b") is a group of its own: tool ports
    of its parts are in it, but do not use it. */
class TapAggUsers {
 public:
   using IntfId = Ulnet::IntfId;
   struct Users {
      KeySet< IntfId > taps;
      KeySet< IntfId > tools;
      KeySet< TapAggClassKey > classes;
      bool pmapGroup = false; ///< a group of the policy maps
      bool empty() const { return taps.empty() && tools.empty() && classes.empty() && !pmapGroup; }
   };

   bool has( const String & name ) const { return users_.has( name ); }
   /** Of that name; null is none. */
   const Users * users( const String & name ) const { return users_.find( name ); }
   /** The names that policy maps use without a class. */
   std::vector< String > pmapGroups() const;
   /** The names that are used and join others, `part` among them. */
   std::vector< String > joinsOf( const String & part ) const;
   /** The tool ports that use one of the names which `name` joins; none of a plain name. */
   std::vector< IntfId > toolsOfParts( const String & name ) const;

   /** Changes the users of `name` by `act( Users & )`. True if it has come into use, or gone out of
       it. */
   template< class Act >
   bool change( const String & name, Act && act ) {
      const bool before = users_.has( name );
      Users & users = *users_.emplace( name ).first;
      act( users );
      const bool after = !users.empty();
      if ( !after ) {
         users_.erase( name );
      }
      if ( before != after ) {
         noteParts( name, after );
      }
      return before != after;
   }

 private:
   void noteParts( const String & name, bool used );

   Kiv::DenseMap< String, Users > users_;
   Kiv::DenseMap< String, KeySet< String > > joins_; // by part
};

} // namespace Qon
