"""General application services: file name patterns and the like."""
