// libc++ includes it; the allocation functions of a debug runtime, of which there are none here.
#pragma once
