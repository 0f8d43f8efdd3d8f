#pragma once
// The DOM operations that the document readers share. (Filled in with the document loader.)
