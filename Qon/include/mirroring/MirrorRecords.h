#pragma once
// What a session remembers of each of its ports, sources and destinations.

#include <memory>
#include <vector>

#include "platform/types/Mirroring.h"

namespace Qon {

using Velto::String;

/** Why a port that is configured is not in hardware. */
enum class MirrorReason : U8 {
   none,          ///< it is
   notWanted,     ///< nothing configures it now, or nothing of it is mirrored
   noDestination, ///< the session is not in hardware
   invalidIntf,   ///< the chip cannot use the interface
   noAcl,         ///< the filter's access list is not there
   overLimit,     ///< too many sources
   overlap,       ///< both directions to one port, in cut-through mode
   refused,       ///< the chip said no
   aclResources,  ///< no room for the filter
   lagMember,     ///< its aggregate is a destination, or none is
};
KIV_ENUM( MirrorReason, none, notWanted, noDestination, invalidIntf, noAcl, overLimit, overlap,
          refused, aclResources, lagMember )

/** Whether a source that could be in hardware is kept out by the others of its session. */
enum class MirrorOverflow : U8 {
   normal = 0,
   overLimit = 1, ///< of the number of sources
   overlap = 2,   ///< invalid overlapping destination in cut-through mode
};
KIV_ENUM( MirrorOverflow, normal, overLimit, overlap )

/** Which frames of a source are mirrored. */
struct MirrorFilter {
   Acl::AclType aclType = Acl::AclType::ip;
   U32 aclPriority = 0;
   U32 aclVersion = 0;      // of its rules
   String aclName;          // empty: no list
   std::vector< U32 > vnis; // of a VXLAN interface
   bool operator==( const MirrorFilter & ) const = default;
};

/** How a source is in hardware, or shall be. Without direction: not at all. Most have no filter, and
    are small. */
class MirrorSource {
 public:
   MirrorSource() = default;
   explicit MirrorSource( Mirroring::Direction d ) : direction( d ) {}
   MirrorSource( Mirroring::Direction d, MirrorFilter filter )
       : direction( d ), filter_( std::make_shared< const MirrorFilter >( std::move( filter ) ) ) {}

   Mirroring::Direction direction = Mirroring::Direction::none;
   const MirrorFilter & filter() const { return filter_ ? *filter_ : all(); }
   const String & aclName() const { return filter().aclName; }
   bool filtered() const { return filter_ && !filter_->aclName.empty(); }
   bool operator==( const MirrorSource & other ) const {
      return direction == other.direction &&
             ( filter_ == other.filter_ || filter() == other.filter() );
   }

 private:
   static const MirrorFilter & all();
   std::shared_ptr< const MirrorFilter > filter_; // null: all frames
};

/** The local record of one source port. */
class MirrorSrcIntfLocal {
 public:
   /** The filter that was applied; empty for none, and while there is no room for it. */
   const String & aclAppliedInHw() const { return inHw_.aclName(); }
   /** As programmed; none: it is not. */
   Mirroring::Direction direction() const { return inHw_.direction; }
   MirrorOverflow overflowState() const { return overflowState_; }
   bool programmed() const { return direction() != Mirroring::Direction::none; }
   /** All that was programmed. */
   const MirrorSource & inHw() const { return inHw_; }
   /** What it is configured to be; what a hook that adds it reads. */
   const MirrorSource & wanted() const { return wanted_; }
   MirrorReason reason() const { return reason_; }

 private:
   friend class MirroringSm;
   MirrorSource inHw_;
   MirrorSource wanted_;
   MirrorOverflow overflowState_ = MirrorOverflow::normal;
   MirrorReason reason_ = MirrorReason::notWanted;
   Mirroring::Direction left_ = Mirroring::Direction::none; // in hardware by an earlier life
   bool aclAsked_ = false;                                  // the chip owes room for a filter
   bool aclFull_ = false;                                   // no room for the filter of `wanted_`
   bool aclFullLogged_ = false;                             // and that was said
};

/** The local record of one destination port. */
class MirrorDstIntfLocal {
 public:
   bool programmed() const { return programmed_; }
   MirrorReason reason() const { return reason_; }

 private:
   friend class MirroringSm;
   bool programmed_ = false;
   Mirroring::SessionAttributes attributes_; // as programmed
   MirrorReason reason_ = MirrorReason::notWanted;
   bool overflowLogged_ = false;
};

} // namespace Qon
