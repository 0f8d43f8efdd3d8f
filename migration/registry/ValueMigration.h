#pragma once
// Value migration for one pair of open keys. (Filled in with the registry engine.)
